#include "outputs/output_file.h"

#include <glib.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace fa
{

OutputFile::OutputFile(const std::string& name, const char* mode)
    : name_(name.empty() ? "standard output" : name),
      file_(name.empty() ? stdout : std::fopen(name.c_str(), mode))
{
    if (file_ == nullptr) {
        Fail();
    }
}

OutputFile::~OutputFile()
{
    if (file_ != nullptr && file_ != stdout) {
        std::fclose(file_);
    }
}

void OutputFile::Write(std::string_view text)
{
    if (std::fwrite(text.data(), 1, text.size(), file_) != text.size()) {
        Fail();
    }
}

void OutputFile::Close()
{
    std::FILE* const file = file_;
    file_ = nullptr;
    if ((file == stdout ? std::fflush(file) : std::fclose(file)) != 0) {
        Fail();
    }
}

void OutputFile::Fail() const
{
    throw Failure(name_ + ": " + std::strerror(errno));
}

void WriteWhole(const std::string& name, std::string_view text)
{
    std::error_code error;
    const auto type = std::filesystem::symlink_status(name, error).type();
    if (name.empty() || (type != std::filesystem::file_type::not_found &&
                         type != std::filesystem::file_type::regular)) {
        OutputFile output(name);
        output.Write(text);
        output.Close();
        return;
    }
    g_autoptr(GError) failure = nullptr;
    if (g_file_set_contents_full(name.c_str(), text.data(), static_cast<gssize>(text.size()),
                                 G_FILE_SET_CONTENTS_CONSISTENT, 0666, &failure) == FALSE) {
        throw Failure(failure->message);
    }
}

void PrintRefused(const std::vector<std::string>& refused)
{
    for (const std::string& line : refused) {
        std::fprintf(stderr, "%s\n", line.c_str());
    }
}

}  // namespace fa
