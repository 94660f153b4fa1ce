// The specification, the result values and the message data of an item record as text.
#include <fa_api/PelkoAppClientLogger.h>

#include <algorithm>
#include <cstdint>
#include <type_traits>

#include "PelkoAppClientLogger/record_fields.h"
#include "PelkoAppClientLogger/report_words.h"
#include "PelkoAppClientLogger/sub_item_names.h"
#include "PelkoAppClientLogger/text_format.h"
#include "common/log.h"

namespace
{

using Mode_e = PelkoAppClientLogger::Mode_e;

constexpr int kLastSimpleSpecIndex = 13;
constexpr std::size_t kTypicalValue = 32;

std::string_view ValueSeparator(Mode_e mode)
{
    return mode == PelkoAppClientLogger::MODE_SIMPLE ? fa::kSimpleListSeparator
                                                     : fa::kListSeparator;
}

bool HasLabels(const PelkoItem_s& item, Mode_e mode)
{
    return mode != PelkoAppClientLogger::MODE_RAW && item.iListCount > 0;
}

static_assert(std::extent_v<decltype(PelkoItem_s::aucList)> ==
                  std::extent_v<decltype(PelkoItem_s::astMeasure)>,
              "an index of a result value is one of its label too");

void AppendLabel(std::string& text, const PelkoItem_s& item, int index)
{
    text.append(fa::SubItemName(item.aucList[index])).append(":");
}

}  // namespace

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
    const long long claimed = fa::ClaimedValues(*item);
    if (claimed <= 0 || (item->iSpecType != SPEC_NONE && item->iMeasureCount <= 0)) {
        return false;
    }
    const int count = fa::CountIn(item->astMeasure, claimed);
    const bool labelled = HasLabels(*item, m_mode);
    std::string result;
    std::string value;
    result.reserve(static_cast<std::size_t>(count) * kTypicalValue);
    for (int i = 0; i < count; ++i) {
        if (i > 0) {
            result += ValueSeparator(m_mode);
        }
        if (labelled) {
            AppendLabel(result, *item, i);
        }
        if (m_ValueToString(value, item->astMeasure[i], item->eMeasureValueType)) {
            result += value;
        }
    }
    text = std::move(result);
    return true;
}

bool PelkoAppClientLogger::m_GetResultLog(std::string& text, PelkoItem_s* item, int index)
{
    const long long claimed = fa::ClaimedValues(*item);
    if (claimed <= 0) {
        return false;
    }
    std::string result;
    std::string value;
    if (fa::HoldsIndex(item->astMeasure, index)) {
        if (HasLabels(*item, m_mode)) {
            AppendLabel(result, *item, index);
        }
        if (claimed >= std::max(item->iListCount, item->iExpectCount) &&
            m_ValueToString(value, item->astMeasure[index], item->eMeasureValueType)) {
            result += value;
        }
    }
    text = std::move(result);
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

bool PelkoAppClientLogger::m_ValueToString(std::string& text, PelkoTestItemValue_s value,
                                           PelkoValueType_e type)
{
    switch (type) {
        case VALUE_INTEGER:
        case VALUE_FLOAT:
            return m_ValueToString(text, value.stNValue, type);
        case VALUE_HEX:
        case VALUE_STRING:
            return m_ValueToString(text, value.stCValue, type);
    }
    return false;
}

bool PelkoAppClientLogger::m_ValueToString(std::string& text, PelkoItemNValue_s value,
                                           PelkoValueType_e type)
{
    char digits[64];
    std::to_chars_result end{};
    if (type == VALUE_INTEGER) {
        end = std::to_chars(digits, digits + sizeof(digits), value.iValue);
    } else if (type == VALUE_FLOAT) {
        end = std::to_chars(digits, digits + sizeof(digits), static_cast<double>(value.fValue),
                            std::chars_format::fixed, 2);
    } else {
        return false;
    }
    text.assign(digits, end.ptr);
    return true;
}

bool PelkoAppClientLogger::m_ValueToString(std::string& text, PelkoItemCValue_s value,
                                           PelkoValueType_e type)
{
    if (type == VALUE_STRING) {
        text = fa::TextField(value.aucData);
        return true;
    }
    if (type != VALUE_HEX) {
        return false;
    }
    const int length = fa::CountIn(value.aucData, value.iLength);
    text = length > 0 ? "0x" : "";
    for (int i = 0; i < length; ++i) {
        FA_LOG(fa::kInfo, "cData[%d]: integer %d", i, value.aucData[i]);
        fa::AppendHexByte(text, value.aucData[i]);
    }
    return true;
}

bool PelkoAppClientLogger::m_IsMultipleDataCode(unsigned char code1, unsigned char code2)
{
    return code1 == 0xCC && code2 == 0x11;
}
