#include "set/profile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "automation_interface/local_sets.h"

namespace fa::set
{

namespace
{

constexpr char kGroup[] = "system_info_int";
constexpr char kLocalSetKey[] = "284";

GKeyFile* LoadProfile(const std::string& path)
{
    g_autoptr(GKeyFile) profile = g_key_file_new();
    g_autoptr(GError) error = nullptr;
    if (!g_key_file_load_from_file(profile, path.c_str(), G_KEY_FILE_KEEP_COMMENTS, &error)) {
        throw Failure("profile " + path + ": " + error->message);
    }
    return static_cast<GKeyFile*>(g_steal_pointer(&profile));
}

void CheckWritable(const std::string& path)
{
    if (access(path.c_str(), W_OK) != 0) {
        throw Failure("profile: cannot write " + path + ": " + g_strerror(errno));
    }
}

}  // namespace

void CheckProfile(const std::string& path)
{
    g_key_file_free(LoadProfile(path));
}

void CheckProfileWritable(const std::string& path)
{
    CheckProfile(path);
    CheckWritable(path);
    // A change puts a new file in the place of the old one.
    CheckWritable(std::filesystem::canonical(path).parent_path().string());
}

std::optional<unsigned int> FindLocalSet(const Bytes& name)
{
    const std::string text(name.begin(), name.end());
    const auto* const end = kLocalSets + kLocalSetCount;
    const auto* const found = std::find(kLocalSets, end, text);
    if (found == end || text == kNoLocalSet) {
        return std::nullopt;
    }
    return static_cast<unsigned int>(found - kLocalSets);
}

void StoreLocalSet(const std::string& profilePath, unsigned int number)
{
    // A link stays a link: its target is what gets replaced.
    std::error_code ignored;
    const std::string path = std::filesystem::canonical(profilePath, ignored).string();
    g_autoptr(GKeyFile) profile = LoadProfile(path.empty() ? profilePath : path);
    g_key_file_set_integer(profile, kGroup, kLocalSetKey, static_cast<gint>(number));
    gsize size = 0;
    g_autofree char* text = g_key_file_to_data(profile, &size, nullptr);
    struct stat status {
    };
    g_autoptr(GError) error = nullptr;
    // The new file is nobody else's to read until it has the old one's permissions.
    if (stat(path.c_str(), &status) != 0 ||
        !g_file_set_contents_full(path.c_str(), text, static_cast<gssize>(size),
                                  G_FILE_SET_CONTENTS_CONSISTENT, 0600, &error) ||
        chmod(path.c_str(), status.st_mode & 07777U) != 0) {
        throw Failure("profile " + path + ": " +
                      (error != nullptr ? error->message : g_strerror(errno)));
    }
}

}  // namespace fa::set
