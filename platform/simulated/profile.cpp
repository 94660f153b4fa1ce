#include "profile.h"

#include <fa_platform/simulation.h>
#include <glib.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "sample_profile.h"

namespace
{

std::mutex mutex;
std::optional<std::string> scriptedProfile;
fa_platform::QueryObserver observer;

GKeyFile* LoadProfile()
{
    g_autoptr(GKeyFile) profile = g_key_file_new();
    const char* path = std::getenv("FA_PLATFORM_PROFILE");
    g_autoptr(GError) error = nullptr;
    const std::lock_guard<std::mutex> lock(mutex);
    if (scriptedProfile || path == nullptr) {
        const std::string text = scriptedProfile.value_or(kSampleProfile);
        g_key_file_load_from_data(profile, text.data(), text.size(), G_KEY_FILE_NONE, &error);
    } else {
        g_key_file_load_from_file(profile, path, G_KEY_FILE_NONE, &error);
    }
    if (error != nullptr) {
        std::fprintf(stderr, "fa_platform: profile %s: %s\n",
                     scriptedProfile ? "of the test" : path, error->message);
    }
    return static_cast<GKeyFile*>(g_steal_pointer(&profile));
}

// What an entry's value stands for; nothing where an escape is unknown. GLib's own reader of values
// takes UTF-8 only, and the texts of a set may be any bytes.
std::optional<std::string> Unescape(const char* value)
{
    std::string text;
    for (; *value != '\0'; ++value) {
        if (*value != '\\') {
            text += *value;
            continue;
        }
        ++value;
        switch (*value) {
            case '\\':
                text += '\\';
                break;
            case 's':
                text += ' ';
                break;
            case 'n':
                text += '\n';
                break;
            case 't':
                text += '\t';
                break;
            case 'r':
                text += '\r';
                break;
            case 'x': {
                const int high = g_ascii_xdigit_value(value[1]);
                const int low = high >= 0 ? g_ascii_xdigit_value(value[2]) : -1;
                if (low < 0 || high + low == 0) {
                    return std::nullopt;
                }
                text += static_cast<char>(high * 16 + low);
                value += 2;
                break;
            }
            default:
                return std::nullopt;
        }
    }
    return text;
}

}  // namespace

namespace fa_platform
{

void UseProfileText(const char* text)
{
    const std::lock_guard<std::mutex> lock(mutex);
    scriptedProfile = text != nullptr ? std::optional<std::string>(text) : std::nullopt;
}

void SetQueryObserver(QueryObserver newObserver)
{
    const std::lock_guard<std::mutex> lock(mutex);
    observer = std::move(newObserver);
}

void Announce(const std::string& query)
{
    std::unique_lock<std::mutex> lock(mutex);
    const QueryObserver current = observer;
    lock.unlock();
    if (current) {
        current(query);
    }
}

std::optional<std::string> FindText(const char* group, const std::string& key)
{
    g_autoptr(GKeyFile) profile = LoadProfile();
    g_autofree char* value = g_key_file_get_value(profile, group, key.c_str(), nullptr);
    if (value == nullptr) {
        return std::nullopt;
    }
    std::optional<std::string> text = Unescape(value);
    if (!text) {
        std::fprintf(stderr, "fa_platform: %s=%s in [%s] has an unknown escape\n", key.c_str(),
                     value, group);
    }
    return text;
}

std::optional<long long> FindNumber(const char* group, const std::string& key)
{
    const std::optional<std::string> text = FindText(group, key);
    if (!text || text->empty()) {
        return std::nullopt;
    }
    const int base = text->find("0x") == std::string::npos ? 10 : 16;
    char* end = nullptr;
    errno = 0;
    const long long number = std::strtoll(text->c_str(), &end, base);
    if (errno != 0 || *end != '\0' || number < G_MININT32 || number > G_MAXUINT32) {
        std::fprintf(stderr, "fa_platform: %s=%s in [%s] is not a number of 32 bits\n", key.c_str(),
                     text->c_str(), group);
        return std::nullopt;
    }
    return number;
}

std::optional<bool> FindFlag(const char* group, const std::string& key)
{
    g_autoptr(GKeyFile) profile = LoadProfile();
    g_autoptr(GError) error = nullptr;
    const bool flag = g_key_file_get_boolean(profile, group, key.c_str(), &error) != FALSE;
    if (g_error_matches(error, G_KEY_FILE_ERROR, G_KEY_FILE_ERROR_INVALID_VALUE)) {
        std::fprintf(stderr, "fa_platform: %s in [%s] is neither true nor false\n", key.c_str(),
                     group);
    }
    return error == nullptr ? std::optional<bool>(flag) : std::nullopt;
}

}  // namespace fa_platform
