// The values of an item record as text.
#include <fa_api/PelkoAppClientLogger.h>

#include "PelkoAppClientLogger/record_fields.h"
#include "PelkoAppClientLogger/text_format.h"
#include "common/log.h"

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
