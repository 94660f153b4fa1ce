// The display panel.
#pragma once

class IDisplayPanel
{
public:
    // The set's panel, or null where there is none. It lives as long as the process.
    static IDisplayPanel* getInstance();

    // Writes the version of the timing controller's data into `buffer`, NUL-terminated within
    // `size` bytes. Returns 0 on success.
    virtual int getTconDataVersion(char* buffer, int size) = 0;

protected:
    virtual ~IDisplayPanel();
};
