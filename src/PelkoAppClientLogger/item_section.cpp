// The section of one inspected item.
#include <fa_api/InspectionLogger.h>
#include <fa_api/PelkoAppClientLogger.h>

#include <algorithm>
#include <cstdint>

#include "PelkoAppClientLogger/record_fields.h"
#include "PelkoAppClientLogger/report_words.h"
#include "PelkoAppClientLogger/sub_item_names.h"
#include "PelkoAppClientLogger/text_format.h"

namespace
{

using Mode_e = PelkoAppClientLogger::Mode_e;

constexpr int kLastSimpleSpecIndex = 13;
constexpr std::size_t kTypicalSection = 4096;
constexpr std::size_t kTypicalValue = 32;

std::string_view ValueSeparator(Mode_e mode)
{
    return mode == PelkoAppClientLogger::MODE_SIMPLE ? fa::kSimpleListSeparator
                                                     : fa::kListSeparator;
}

// As many result values as the record claims, which may be more than it holds.
long long ClaimedValues(const PelkoItem_s& item)
{
    return static_cast<long long>(item.iMeasureCount) + item.iExtraCount;
}

bool HasLabels(const PelkoItem_s& item, Mode_e mode)
{
    return mode != PelkoAppClientLogger::MODE_RAW && item.iListCount > 0;
}

void AppendLabel(std::string& text, const PelkoItem_s& item, int index)
{
    text.append(fa::SubItemName(item.aucList[index])).append(":");
}

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

bool PelkoAppClientLogger::GetItemLog(std::string& section, PelkoItem_s* item, int index)
{
    const bool raw = m_mode == MODE_RAW;
    const bool timed = m_mode == MODE_DETAIL || raw;  // not in a mode outside the enumeration
    std::string value;
    section.clear();
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
    if (item->ulResult <= 1) {
        return true;
    }
    if (item->ulErrorFlag != 0) {
        AppendErrorForm(section, item->ulErrorFlag);
        return true;
    }

    if (m_GetMsgDataLog(value, item)) {
        fa::AppendLine(section, "data", value);
    }
    fa::AppendLine(section, "result", item->ulResult <= 3 ? fa::kPass : fa::kFail);
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
        if (item->iSpecType != SPEC_NONE || ClaimedValues(*item) > 0) {
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
    return true;
}

bool PelkoAppClientLogger::GetResultLog(std::string& text, PelkoItem_s* item)
{
    return m_GetResultLog(text, item);
}

bool PelkoAppClientLogger::GetSpecLog(std::string& text, PelkoItem_s* item)
{
    return m_GetSpecLog(text, item);
}

bool PelkoAppClientLogger::m_GetResultLog(std::string& text, PelkoItem_s* item)
{
    const long long claimed = ClaimedValues(*item);
    if (claimed <= 0 || (item->iSpecType != SPEC_NONE && item->iMeasureCount <= 0)) {
        return false;
    }
    const int count = fa::CountIn(item->astMeasure, claimed);
    const bool labelled = HasLabels(*item, m_mode);
    std::string value;
    text.clear();
    text.reserve(static_cast<std::size_t>(count) * kTypicalValue);
    for (int i = 0; i < count; ++i) {
        if (i > 0) {
            text += ValueSeparator(m_mode);
        }
        if (labelled) {
            AppendLabel(text, *item, i);
        }
        if (m_ValueToString(value, item->astMeasure[i], item->eMeasureValueType)) {
            text += value;
        }
    }
    return true;
}

bool PelkoAppClientLogger::m_GetResultLog(std::string& text, PelkoItem_s* item, int index)
{
    const long long claimed = ClaimedValues(*item);
    if (claimed <= 0) {
        return false;
    }
    text.clear();
    if (!fa::HoldsIndex(item->astMeasure, index)) {
        return true;
    }
    if (HasLabels(*item, m_mode)) {
        AppendLabel(text, *item, index);
    }
    std::string value;
    if (claimed >= std::max(item->iListCount, item->iExpectCount) &&
        m_ValueToString(value, item->astMeasure[index], item->eMeasureValueType)) {
        text += value;
    }
    return true;
}

bool PelkoAppClientLogger::m_GetSpecLog(std::string& text, PelkoItem_s* item)
{
    const PelkoValueType_e type = item->eSpecValueType;
    std::string spec;
    std::string value;
    switch (item->iSpecType) {
        case SPEC_NONE:
            return false;
        case SPEC_RANGE:
            if (!m_ValueToString(spec, item->astSpec[0], type) ||
                !m_ValueToString(value, item->astSpec[1], type)) {
                return false;
            }
            spec.append(fa::kSpecRange).append(value);
            break;
        case SPEC_LIST: {
            const int count = fa::CountIn(item->astSpec, item->iSpecCount);
            for (int i = 0; i < count; ++i) {
                if (!m_ValueToString(value, item->astSpec[i], type)) {
                    return false;
                }
                spec += value;
                if (i != count - 1) {
                    spec += ValueSeparator(m_mode);
                }
                if (m_mode == MODE_SIMPLE && i == kLastSimpleSpecIndex) {
                    spec += fa::kSimpleListEnd;
                    break;
                }
            }
            break;
        }
        default:
            if (!m_ValueToString(spec, item->astSpec[0], type)) {
                return false;
            }
            spec += fa::SpecOperator(item->iSpecType);
            break;
    }
    text = std::move(spec);
    return true;
}

bool PelkoAppClientLogger::m_GetMsgDataLog(std::string& text, PelkoItem_s* item)
{
    const PelkoItemCValue_s& data = item->stMsgData;
    if (data.iLength <= 0) {
        return false;
    }
    text.clear();
    if (item->eMsgDataType == VALUE_STRING) {
        text = fa::TextField(data.aucData);
    } else if (item->eMsgDataType == VALUE_INTEGER) {
        std::uint32_t number = 0;  // most significant byte first, unlike a value record's number
        for (int i = 0; i < 4; ++i) {
            number = number << 8 | data.aucData[i];
        }
        fa::AppendNumber(text, static_cast<std::int32_t>(number));
    }
    return true;
}
