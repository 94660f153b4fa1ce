#include "outputs/output_file.h"

#include <cerrno>
#include <cstring>

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

void PrintRefused(const std::vector<std::string>& refused)
{
    for (const std::string& line : refused) {
        std::fprintf(stderr, "%s\n", line.c_str());
    }
}

}  // namespace fa
