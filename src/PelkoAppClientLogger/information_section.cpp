// The summary and the information section of a report.
#include <fa_api/PelkoAppClientLogger.h>
#include <fa_platform/factory.h>

#include <cstring>

#include "PelkoAppClientLogger/record_fields.h"
#include "PelkoAppClientLogger/report_words.h"
#include "PelkoAppClientLogger/system_text.h"
#include "PelkoAppClientLogger/text_format.h"
#include "common/log.h"

namespace
{

constexpr int kModelKey = 0;
constexpr int kFactoryOption = 254;
constexpr std::size_t kOptionSize = 128;
// The place of an option's 127th and last character: a comma there has nothing after it to show.
constexpr std::size_t kLastOptionPlace = kOptionSize - 2;

const char* ResultWord(const PelkoTestInfo_s& info)
{
    switch (info.iRunState) {
        case RUN_STATE_COMPLETED:
            return info.iFailCount > 0 ? fa::kFailWord : fa::kPassWord;
        case RUN_STATE_TIMED_OUT:
            return fa::kTimeoutWord;
        case RUN_STATE_STOPPED:
            return fa::kStopWord;
        default:
            return "";
    }
}

void AppendLink(std::string& text, const PelkoTestInfo_s& info)
{
    switch (info.iLinkType) {
        case LINK_TYPE_UART:
            text += "uart";
            return;
        case LINK_TYPE_BLUETOOTH:
            text += "bt";
            break;
        case LINK_TYPE_WIFI:
            text += "wifi";
            break;
        default:
            return;
    }
    for (const unsigned int value : info.aulLinkValue) {
        text += ", ";
        fa::AppendNumber(text, value);
    }
}

void AppendModel(std::string& text)
{
    const fa::SystemText model = fa::QuerySystemText(kModelKey);
    fa::AppendLine(text, "model", model.text != nullptr ? model.text.get() : "");
}

// The third comma after the first character, at which a simple report breaks the line. Null where
// there is none before the last place.
char* LineBreakComma(char (&option)[kOptionSize])
{
    char* comma = std::strchr(option + 1, ',');
    for (int further = 0; comma != nullptr && further < 2; ++further) {
        comma = std::strchr(comma + 1, ',');
    }
    return comma != nullptr && comma < option + kLastOptionPlace ? comma : nullptr;
}

void AppendOption(std::string& text, bool mayWrap)
{
    char option[kOptionSize] = {};
    unsigned int length = 0;
    factory_get_option_string_data(kFactoryOption, option, &length);
    option[kOptionSize - 1] = '\0';
    FA_LOG_FOR("GetInfoLog", fa::kInfo, "bufOption: %s", option);

    char* comma = mayWrap ? LineBreakComma(option) : nullptr;
    if (comma != nullptr) {
        *comma = '\0';
    }
    fa::AppendLine(text, "option", option);
    if (comma != nullptr) {
        text.append("    ").append(comma + 1).append("\n");
    }
}

}  // namespace

bool PelkoAppClientLogger::GetInfoLog(std::string& text, PelkoTestInfo_s* testInfo)
{
    std::string section;
    std::string value;

    section += "[summary]\n";
    m_TimeToString(value, testInfo->stStartTime);
    fa::AppendLine(section, "starttime", value);
    fa::AppendNumberLine(section, "duration", testInfo->ulDuration);
    fa::AppendLine(section, "result", ResultWord(*testInfo));
    section += "pelko=";
    AppendLink(section, *testInfo);
    section += '\n';
    fa::AppendNumberLine(section, "testnum", testInfo->iItemCount + 3LL);
    fa::AppendNumberLine(section, "retrycount", testInfo->iRetryCount);
    section += '\n';

    section += "[information]\n";
    fa::AppendLine(section, "s/n", fa::TextField(testInfo->szSerialNumber));
    AppendModel(section);
    AppendOption(section, m_mode == MODE_SIMPLE);
    m_GetVersionInfo(value);
    section.append(value).append("\n");
    if (m_GetSoVersion(value)) {
        fa::AppendLine(section, "dnso", value);
    }

    text = std::move(section);
    return true;
}

bool PelkoAppClientLogger::m_TimeToString(std::string& text, PelkoInfoTime_s time)
{
    text.clear();
    fa::AppendNumber(text, time.cYear + 1900);
    for (const signed char field :
         {time.cMonth, time.cDay, time.cHour, time.cMinute, time.cSecond}) {
        fa::AppendPadded(text, field, 2);
    }
    return true;
}
