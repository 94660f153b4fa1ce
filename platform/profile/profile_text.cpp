#include "profile_text.h"

#include <fa_platform/bluetooth.h>
#include <fa_platform/display_panel.h>
#include <fa_platform/factory.h>
#include <fa_platform/system_info.h>
#include <fa_platform/video_enhance.h>
#include <glib.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace fa
{

namespace
{

constexpr int kIntegerKeys[] = {869, 284};
constexpr int kModelKey = 0;
constexpr int kStringKeys[] = {kModelKey, 128, 133};
constexpr char kBluetoothFeature[] = "com.velmora/featureconf/bluetooth.support";
constexpr unsigned char kDimmingSelectors[] = {7, 8};
constexpr unsigned int kNoDimmingVersion = 0xFFFFFFFF;
constexpr int kFactoryOption = 254;

// Bytes that an editor would not show, or not keep, are written as escapes.
std::string Escape(std::string_view text)
{
    std::string escaped;
    for (std::size_t begin = 0; begin < text.size();) {
        const auto byte = static_cast<unsigned char>(text[begin]);
        const char* const rest = text.data() + begin;
        const gunichar character =
            g_utf8_get_char_validated(rest, static_cast<gssize>(text.size() - begin));
        const bool atEdge = begin == 0 || begin + 1 == text.size();
        std::size_t length = 1;
        if (byte == '\\') {
            escaped += "\\\\";
        } else if (byte == '\n') {
            escaped += "\\n";
        } else if (byte == ' ' && atEdge) {
            escaped += "\\s";
        } else if (character <= 0x10FFFF && g_unichar_isprint(character)) {
            length = static_cast<std::size_t>(g_utf8_next_char(rest) - rest);
            escaped += text.substr(begin, length);
        } else {
            constexpr char kDigits[] = "0123456789ABCDEF";
            escaped.append("\\x").append(1, kDigits[byte / 16]).append(1, kDigits[byte % 16]);
        }
        begin += length;
    }
    return escaped;
}

class Writer
{
public:
    void Group(const std::string& name) { profile_.text += "\n[" + name + "]\n"; }
    void Entry(const std::string& key, const std::string& value)
    {
        profile_.text.append(key).append("=").append(value).append("\n");
    }
    void Failed(const std::string& key, int status)
    {
        profile_.text += "# " + key + ": the query fails with " + std::to_string(status) + "\n";
    }
    void Lost(const std::string& query, const std::string& what)
    {
        profile_.losses.push_back(query + " " + what);
    }
    // A query whose output the library uses, whatever the status says.
    void OutputInSpiteOf(int status, const std::string& query)
    {
        if (status != 0) {
            Lost(query, "fails with " + std::to_string(status) +
                            " and has an answer all the same; in the profile it succeeds");
        }
    }
    PlatformProfile Take() { return std::move(profile_); }

private:
    PlatformProfile profile_{"# What the platform answered to fa-platform-profile.\n", {}};
};

void AskIntegers(Writer& writer)
{
    writer.Group("system_info_int");
    for (const int key : kIntegerKeys) {
        int value = 0;
        const int status = system_info_get_value_int(key, &value);
        if (status == 0) {
            writer.Entry(std::to_string(key), std::to_string(value));
        } else {
            writer.Failed(std::to_string(key), status);
        }
    }
}

void AskStrings(Writer& writer)
{
    writer.Group("system_info_string");
    for (const int key : kStringKeys) {
        const std::string name = std::to_string(key);
        const std::string query = "system information string " + name;
        char* text = nullptr;
        const int status = system_info_get_value_string(key, &text);
        if (text != nullptr && (status == 0 || key == kModelKey)) {
            writer.OutputInSpiteOf(status, query);
            writer.Entry(name, Escape(text));
        } else {
            writer.Failed(name, status);
            if (status == 0) {
                writer.Lost(query, "succeeds without a text; in the profile it fails");
            }
        }
        std::free(text);
    }
}

void AskBluetooth(Writer& writer)
{
    writer.Group("custom_bool");
    bool supported = false;
    int status = system_info_get_custom_bool(kBluetoothFeature, &supported);
    if (status == 0) {
        writer.Entry(kBluetoothFeature, supported ? "true" : "false");
    } else {
        writer.Failed(kBluetoothFeature, status);
    }

    writer.Group("bluetooth");
    int version = 0;
    status = bt_adapter_get_chip_version(&version);
    if (status == 0) {
        writer.Entry("chip_version", std::to_string(version));
    } else {
        writer.Failed("chip_version", status);
    }
}

// The text in a buffer whose last byte is for the NUL.
template <std::size_t N>
std::string_view TextIn(const char (&buffer)[N], const std::string& query, Writer& writer)
{
    const char* const end = std::find(buffer, buffer + N - 1, '\0');
    if (std::any_of(end, buffer + N, [](char byte) { return byte != '\0'; })) {
        writer.Lost(query, "has bytes after the end of its text");
    }
    return {buffer, static_cast<std::size_t>(end - buffer)};
}

void AskPanel(Writer& writer)
{
    writer.Group("display_panel");
    IDisplayPanel* panel = IDisplayPanel::getInstance();
    writer.Entry("present", panel != nullptr ? "true" : "false");
    if (panel == nullptr) {
        return;
    }
    char version[40] = {};
    const int status = panel->getTconDataVersion(version, sizeof(version));
    if (status == 0) {
        writer.Entry("tcon_data_version", Escape(TextIn(version, "TCON data version", writer)));
    } else {
        writer.Failed("tcon_data_version", status);
    }
}

void AskLocalDimming(Writer& writer)
{
    writer.Group("local_dimming");
    for (const unsigned char selector : kDimmingSelectors) {
        const std::string name = std::to_string(selector);
        unsigned int version = kNoDimmingVersion;
        const int status = ve_start_local_dimming_test(selector, &version);
        if (status == 0 || version != kNoDimmingVersion) {
            writer.OutputInSpiteOf(status, "local-dimming version " + name);
            g_autofree char* number = g_strdup_printf("0x%08X", version);
            writer.Entry(name, number);
        } else {
            writer.Failed(name, status);
        }
    }
}

void AskFactoryOption(Writer& writer)
{
    writer.Group("factory_option");
    const std::string name = std::to_string(kFactoryOption);
    const std::string query = "factory option " + name;
    char buffer[128] = {};
    unsigned int length = 0;
    const int status = factory_get_option_string_data(kFactoryOption, buffer, &length);
    const std::string_view text = TextIn(buffer, query, writer);
    if (status != 0 && text.empty()) {
        writer.Failed(name, status);
        return;
    }
    writer.OutputInSpiteOf(status, query);
    if (length != text.size()) {
        writer.Lost(query, "has the length " + std::to_string(length) + "; in the profile it is " +
                               std::to_string(text.size()));
    }
    writer.Entry(name, Escape(text));
}

}  // namespace

PlatformProfile AskPlatform()
{
    Writer writer;
    AskIntegers(writer);
    AskStrings(writer);
    AskBluetooth(writer);
    AskPanel(writer);
    AskLocalDimming(writer);
    AskFactoryOption(writer);
    return writer.Take();
}

}  // namespace fa
