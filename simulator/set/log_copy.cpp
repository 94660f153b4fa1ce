#include "set/log_copy.h"

#include <filesystem>

#include "support/console.h"

namespace fa::set
{

namespace files = std::filesystem;

namespace
{

// A link in the copy's place would lead the copy elsewhere.
void CopyEntry(const files::directory_entry& from, const files::path& at, std::error_code& error)
{
    std::error_code ignored;
    if (from.is_symlink(ignored) ||
        !(from.is_directory(ignored) || from.is_regular_file(ignored))) {
        return;
    }
    if (files::is_symlink(at, ignored)) {
        error = std::make_error_code(std::errc::too_many_symbolic_link_levels);
    } else if (from.is_directory(ignored)) {
        files::create_directory(at, error);
    } else {
        files::copy_file(from, at, files::copy_options::overwrite_existing, error);
    }
}

}  // namespace

bool CopyLogs(const std::string& logFolder, const std::string& usbFolder)
{
    std::error_code error;
    if (!files::is_directory(logFolder, error) || !files::is_directory(usbFolder, error)) {
        Say("no logs are copied: no %s",
            files::is_directory(logFolder, error) ? "USB storage" : "log folder");
        return false;
    }
    const files::path source = files::canonical(logFolder, error);
    if (!error && *files::relative(usbFolder, source, error).begin() != "..") {
        Say("no logs are copied: the USB storage lies inside the log folder");
        return false;
    }
    files::path at = usbFolder / source.filename();
    if (!error) {
        CopyEntry(files::directory_entry(source), at, error);
    }
    auto entry = !error ? files::recursive_directory_iterator(source, error)
                        : files::recursive_directory_iterator();
    while (!error && entry != files::recursive_directory_iterator()) {
        at = usbFolder / source.filename() / entry->path().lexically_relative(source);
        CopyEntry(*entry, at, error);
        if (!error) {
            entry.increment(error);
        }
    }
    if (error) {
        Say("the copy of the logs stops at %s: %s", at.c_str(), error.message().c_str());
        return false;
    }
    Say("%s is copied to %s", source.c_str(), usbFolder.c_str());
    return true;
}

}  // namespace fa::set
