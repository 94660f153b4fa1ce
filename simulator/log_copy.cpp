#include "log_copy.h"

#include <filesystem>

#include "console.h"

namespace fa
{

namespace files = std::filesystem;

bool CopyLogs(const std::string& logFolder, const std::string& usbFolder)
{
    std::error_code error;
    if (logFolder.empty() || !files::is_directory(usbFolder, error)) {
        Say("no logs are copied: no %s", logFolder.empty() ? "log folder" : "USB storage");
        return false;
    }
    const files::path source = files::canonical(logFolder, error);
    if (!error && *files::relative(usbFolder, source, error).begin() != "..") {
        Say("no logs are copied: the USB storage lies inside the log folder");
        return false;
    }
    if (!error) {
        // A stick has no links, and copying what one leads to might never end.
        constexpr auto options = files::copy_options::recursive |
                                 files::copy_options::overwrite_existing |
                                 files::copy_options::skip_symlinks;
        files::copy(source, usbFolder / source.filename(), options, error);
    }
    if (error) {
        Say("no logs are copied: %s", error.message().c_str());
        return false;
    }
    Say("%s is copied to %s", source.c_str(), usbFolder.c_str());
    return true;
}

}  // namespace fa
