// The section of one inspected item.
#include <fa_api/InspectionLogger.h>
#include <fa_api/PelkoAppClientLogger.h>

#include "PelkoAppClientLogger/record_fields.h"
#include "PelkoAppClientLogger/report_words.h"
#include "PelkoAppClientLogger/sub_item_names.h"
#include "PelkoAppClientLogger/text_format.h"

namespace
{

constexpr std::size_t kTypicalSection = 4096;

template <std::size_t N>
void AppendNamesLine(std::string& section, std::string_view key, const unsigned char (&codes)[N],
                     int claimed)
{
    section.append(key).append("=");
    const int count = fa::CountIn(codes, claimed);
    for (int i = 0; i < count; ++i) {
        section.append(i > 0 ? "," : "").append(fa::SubItemName(codes[i]));
    }
    section += '\n';
}

void AppendCodesLine(std::string& section, const PelkoItem_s& item)
{
    section += "list=";
    const int count = fa::CountIn(item.aucList, item.iListCount);
    for (int i = 0; i < count; ++i) {
        fa::AppendHexByte(section, item.aucList[i]);
    }
    section += '\n';
}

void AppendErrorForm(std::string& section, unsigned int errorFlag)
{
    section += "result=fail\n";
    if ((errorFlag & ERROR_FLAG_DATA) != 0) {
        section += "data=error\n";
    }
    if ((errorFlag & ERROR_FLAG_SPEC) != 0) {
        section += "spec=error\n";
    }
    if ((errorFlag & ERROR_FLAG_LIST) != 0) {
        section += "list=error\n";
    }
}

}  // namespace

bool PelkoAppClientLogger::GetItemLog(std::string& text, PelkoItem_s* item, int index)
{
    const bool raw = m_mode == MODE_RAW;
    const bool timed = m_mode == MODE_DETAIL || raw;  // not in a mode outside the enumeration
    std::string section;
    std::string value;
    section.reserve(kTypicalSection);

    section += '[';
    fa::AppendPadded(section, index + 1LL, 3);
    section += "]\n";
    section.append("name=").append(fa::TextField(item->szName));
    if (raw) {
        section += ", 0x";
        fa::AppendHexByte(section, item->ucCode1);
        section += ' ';
        fa::AppendHexByte(section, item->ucCode2);
    }
    section += '\n';
    if (raw) {
        fa::AppendLine(section, "imqs", fa::TextField(item->szImqs));
    }
    if (item->ulResult < RESULT_PASS) {
        text = std::move(section);
        return true;
    }
    if (item->ulErrorFlag != 0) {
        AppendErrorForm(section, item->ulErrorFlag);
        text = std::move(section);
        return true;
    }

    if (m_GetMsgDataLog(value, item)) {
        fa::AppendLine(section, "data", value);
    }
    fa::AppendLine(section, "result", item->ulResult < RESULT_FAIL ? fa::kPassWord : fa::kFailWord);
    if (timed) {
        fa::AppendNumberLine(section, "duration", item->ulDuration);
        fa::AppendNumberLine(section, "retrycount", item->iRetryCount);
    }

    // Of the multiple-data item a simple report shows the selected value, or nothing.
    const bool selects =
        m_mode == MODE_SIMPLE && m_IsMultipleDataCode(item->ucCode1, item->ucCode2);
    if (!selects || item->iSelectIndex != -1) {
        if (item->iSpecType != SPEC_NONE || item->iMeasureCount > 0) {
            if (!m_GetSpecLog(value, item)) {
                value.clear();
            }
            fa::AppendLine(section, "spec", value);
        }
        if (item->iSpecType != SPEC_NONE || fa::ClaimedValues(*item) > 0) {
            const bool shown = selects ? m_GetResultLog(value, item, item->iSelectIndex)
                                       : m_GetResultLog(value, item);
            if (!shown) {
                value.clear();
            }
            fa::AppendLine(section, "measure", value);
        }
    }

    if (item->iSkipCount > 0) {
        AppendNamesLine(section, "skip", item->aucSkip, item->iSkipCount);
    }
    if (item->iErrorCount > 0) {
        AppendNamesLine(section, "error", item->aucError, item->iErrorCount);
    }
    if (raw && item->iListCount > 0) {
        AppendCodesLine(section, *item);
    }
    if (timed) {
        const bool shortTid = item->iTid >= 1 && item->iTid <= 9;
        fa::AppendLine(section, "insptype",
                       item->eInspType == INSPECTION_AUTO ? fa::kAuto : fa::kNormal);
        fa::AppendNumberLine(section, "tid", shortTid ? item->iTid : item->lTid);
        fa::AppendNumberLine(section, "starttime", item->ulStartTime);
    }
    if (raw) {
        std::string detail;
        if (InspectionLogger::GetInstance() != nullptr) {
            InspectionLogger::GetInspectionLog(detail, item->ucCode1, item->ucCode2);
        }
        m_GetFailedLog(value, item->ucCode1, item->ucCode2);
        section.append("failed=").append(value).append("^").append(detail).append("^\n");
    }
    text = std::move(section);
    return true;
}
