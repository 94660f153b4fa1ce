// The factory interface library.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

// Writes the text of a factory option into `buffer`, which holds 128 bytes, NUL-terminated, and its
// length into *length. Returns 0 on success and leaves the buffer alone otherwise.
int factory_get_option_string_data(int option, char* buffer, unsigned int* length);

#ifdef __cplusplus
}

// Profiles the scope it lives in. The texts are not copied.
class FCBlockProfiler
{
public:
    FCBlockProfiler(const char* file, int line, const char* function);
    ~FCBlockProfiler();
    FCBlockProfiler(const FCBlockProfiler&) = delete;
    FCBlockProfiler& operator=(const FCBlockProfiler&) = delete;
};
#endif
