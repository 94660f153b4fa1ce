/// @file
/// The records that an application fills for the report writer.
///
/// Their layout is part of the binary interface. Texts end at their NUL or at the end of their
/// field, and counts beyond the capacity of their field are read as that capacity, so no content
/// makes the report writer read outside a record. Reserved fields are not read.
#ifndef FA_API_PELKORECORDS_H
#define FA_API_PELKORECORDS_H

#include <cstddef>

/// Date and time of a run.
struct PelkoInfoTime_s {
    signed char cYear;            ///< years since 1900
    signed char cMonth;           ///< written as stored, like all that follow
    signed char cDay;             ///< day of the month
    signed char cHour;            ///< hour
    signed char cMinute;          ///< minute
    signed char cSecond;          ///< second
    unsigned char abReserved[2];  ///< not read
};

/// States of a run, for PelkoTestInfo_s::iRunState. Any other value leaves the result empty. Since
/// 1.1.
enum PelkoRunState_e : int {
    RUN_STATE_COMPLETED = 3,  ///< "fail" where iFailCount is above 0, else "pass"
    RUN_STATE_TIMED_OUT = 4,  ///< "timeout"
    RUN_STATE_STOPPED = 5     ///< "stop"
};

/// Factory network links, for PelkoTestInfo_s::iLinkType. Any other value leaves the link empty.
/// Since 1.1.
enum PelkoLinkType_e : int {
    LINK_TYPE_UART = 0,       ///< "uart", without link values
    LINK_TYPE_BLUETOOTH = 1,  ///< "bt" and the link values
    LINK_TYPE_WIFI = 2        ///< "wifi" and the link values
};

/// One inspection run.
struct PelkoTestInfo_s {
    int iItemCount;                ///< items to render: not more than the vector holds
    int aiReserved1[3];            ///< not read
    int iRetryCount;               ///< retries of the run
    int aiReserved2[2];            ///< not read
    PelkoInfoTime_s stStartTime;   ///< start of the run
    char szSerialNumber[28];       ///< the set's serial number
    int iRunState;                 ///< PelkoRunState_e
    int iFailCount;                ///< failed items; read in RUN_STATE_COMPLETED only
    int aiReserved3[2];            ///< not read
    unsigned int ulDuration;       ///< in the caller's unit
    int iLinkType;                 ///< PelkoLinkType_e
    unsigned int aulLinkValue[4];  ///< written for Bluetooth and Wi-Fi
};

/// How a value record is to be read.
enum PelkoValueType_e : int {
    VALUE_INTEGER = 0,  ///< numeric form: signed decimal
    VALUE_HEX = 1,      ///< character form: "0x" and two digits for each of iLength bytes
    VALUE_STRING = 2,   ///< character form: text
    VALUE_FLOAT = 3     ///< numeric form: two digits after the decimal point
};

/// Results of an item, for PelkoItem_s::ulResult. 1 counts as RESULT_NONE, 3 as RESULT_PASS, and
/// every value above 4 as RESULT_FAIL. Since 1.1.
enum PelkoResult_e : unsigned int {
    RESULT_NONE = 0,  ///< no result yet: the item's section ends after its name
    RESULT_PASS = 2,  ///< "pass"
    RESULT_FAIL = 4   ///< "fail"
};

/// How an item was inspected. Every value but INSPECTION_AUTO counts as normal.
enum PelkoInspectionType_e : int {
    INSPECTION_NORMAL = 0,  ///< "normal"
    INSPECTION_AUTO = 1     ///< "auto"
};

/// Kinds of specification, for PelkoItem_s::iSpecType. Any other value is rendered like SPEC_VALUE.
enum PelkoSpecType_e : int {
    SPEC_NONE = 0,           ///< no specification
    SPEC_VALUE = 1,          ///< equal to the value
    SPEC_NOT_EQUAL = 2,      ///< not equal to it
    SPEC_GREATER_EQUAL = 3,  ///< at least the value
    SPEC_LESS_EQUAL = 4,     ///< at most the value
    SPEC_GREATER = 5,        ///< above the value
    SPEC_LESS = 6,           ///< below the value
    SPEC_RANGE = 7,          ///< from the low to the high value
    SPEC_LIST = 8            ///< a list of values
};

/// Bits of PelkoItem_s::ulErrorFlag.
enum PelkoErrorFlag_e : unsigned int {
    ERROR_FLAG_SPEC = 0x1,  ///< specification error
    ERROR_FLAG_DATA = 0x2,  ///< data error
    ERROR_FLAG_LIST = 0x4   ///< list error
};

/// The numeric form of a value.
union PelkoItemNValue_s {
    int iValue;    ///< for VALUE_INTEGER
    float fValue;  ///< for VALUE_FLOAT
};

/// The character form of a value.
struct PelkoItemCValue_s {
    int iLength;                ///< bytes used, for VALUE_HEX
    unsigned char aucData[32];  ///< bytes (VALUE_HEX) or text (VALUE_STRING)
};

/// A value in either form; a type beside it tells which.
struct PelkoTestItemValue_s {
    PelkoItemNValue_s stNValue;  ///< for VALUE_INTEGER and VALUE_FLOAT
    PelkoItemCValue_s stCValue;  ///< for VALUE_HEX and VALUE_STRING
};

/// One inspected item. A sub-item code is a byte that names an input, a reason or the like in the
/// report.
struct PelkoItem_s {
    char szName[62];                   ///< the item's name
    unsigned char ucCode1;             ///< the code pair that identifies the item
    unsigned char ucCode2;             ///< its second byte
    char szImqs[776];                  ///< the text of a raw report's "imqs=" line
    unsigned int ulErrorFlag;          ///< PelkoErrorFlag_e bits; not 0 gives the error form
    unsigned char abReserved1[4];      ///< not read
    int iTid;                          ///< short test identifier, used when it lies in 1 to 9
    unsigned char abReserved2[4];      ///< not read
    PelkoInspectionType_e eInspType;   ///< how the item was inspected
    PelkoValueType_e eMsgDataType;     ///< type of the message data
    PelkoItemCValue_s stMsgData;       ///< message data, present when its iLength is above 0
    unsigned int ulResult;             ///< PelkoResult_e
    int iRetryCount;                   ///< retries of the item
    int iSpecType;                     ///< PelkoSpecType_e
    PelkoValueType_e eSpecValueType;   ///< type of all specification values
    int iSpecCount;                    ///< values of a SPEC_LIST
    PelkoTestItemValue_s astSpec[20];  ///< SPEC_RANGE: low and high; other kinds but SPEC_LIST: one
    unsigned char abReserved3[4];      ///< not read
    unsigned int ulStartTime;          ///< in the caller's unit
    unsigned int ulDuration;           ///< in the caller's unit
    int lTid;                          ///< long test identifier
    int iSkipCount;                    ///< codes in aucSkip
    unsigned char aucSkip[16];         ///< sub-item codes of skipped sub-items
    int iErrorCount;                   ///< codes in aucError
    unsigned char aucError[64];        ///< sub-item codes of sub-items in error
    int iExpectCount;                  ///< result values needed before the selected one is shown
    int iSelectIndex;                  ///< multiple-data item: index of the selected value, or -1
    int iMeasureCount;                 ///< result values: iMeasureCount + iExtraCount of them
    int iExtraCount;                   ///< result values after the first iMeasureCount ones
    PelkoTestItemValue_s astMeasure[96];  ///< the result values
    PelkoValueType_e eMeasureValueType;   ///< type of all result values
    int iListCount;                       ///< codes in aucList
    unsigned char aucList[96];            ///< sub-item codes, one for each result value
};

/// @cond
#define FA_API_FIELD_AT(record, field, offset) \
    static_assert(offsetof(record, field) == (offset), #record "::" #field)

static_assert(sizeof(PelkoInfoTime_s) == 8 && alignof(PelkoInfoTime_s) == 1, "PelkoInfoTime_s");
FA_API_FIELD_AT(PelkoInfoTime_s, cMonth, 1);
FA_API_FIELD_AT(PelkoInfoTime_s, cDay, 2);
FA_API_FIELD_AT(PelkoInfoTime_s, cHour, 3);
FA_API_FIELD_AT(PelkoInfoTime_s, cMinute, 4);
FA_API_FIELD_AT(PelkoInfoTime_s, cSecond, 5);

static_assert(sizeof(PelkoTestInfo_s) == 104, "PelkoTestInfo_s");
FA_API_FIELD_AT(PelkoTestInfo_s, iItemCount, 0);
FA_API_FIELD_AT(PelkoTestInfo_s, iRetryCount, 16);
FA_API_FIELD_AT(PelkoTestInfo_s, stStartTime, 28);
FA_API_FIELD_AT(PelkoTestInfo_s, szSerialNumber, 36);
FA_API_FIELD_AT(PelkoTestInfo_s, iRunState, 64);
FA_API_FIELD_AT(PelkoTestInfo_s, iFailCount, 68);
FA_API_FIELD_AT(PelkoTestInfo_s, ulDuration, 80);
FA_API_FIELD_AT(PelkoTestInfo_s, iLinkType, 84);
FA_API_FIELD_AT(PelkoTestInfo_s, aulLinkValue, 88);

static_assert(sizeof(PelkoItemNValue_s) == 4, "PelkoItemNValue_s");
static_assert(sizeof(PelkoItemCValue_s) == 36, "PelkoItemCValue_s");
FA_API_FIELD_AT(PelkoItemCValue_s, aucData, 4);
static_assert(sizeof(PelkoTestItemValue_s) == 40, "PelkoTestItemValue_s");
FA_API_FIELD_AT(PelkoTestItemValue_s, stCValue, 4);

static_assert(sizeof(PelkoItem_s) == 5784, "PelkoItem_s");
FA_API_FIELD_AT(PelkoItem_s, ucCode1, 62);
FA_API_FIELD_AT(PelkoItem_s, ucCode2, 63);
FA_API_FIELD_AT(PelkoItem_s, szImqs, 64);
FA_API_FIELD_AT(PelkoItem_s, ulErrorFlag, 840);
FA_API_FIELD_AT(PelkoItem_s, iTid, 848);
FA_API_FIELD_AT(PelkoItem_s, eInspType, 856);
FA_API_FIELD_AT(PelkoItem_s, eMsgDataType, 860);
FA_API_FIELD_AT(PelkoItem_s, stMsgData, 864);
FA_API_FIELD_AT(PelkoItem_s, ulResult, 900);
FA_API_FIELD_AT(PelkoItem_s, iRetryCount, 904);
FA_API_FIELD_AT(PelkoItem_s, iSpecType, 908);
FA_API_FIELD_AT(PelkoItem_s, eSpecValueType, 912);
FA_API_FIELD_AT(PelkoItem_s, iSpecCount, 916);
FA_API_FIELD_AT(PelkoItem_s, astSpec, 920);
FA_API_FIELD_AT(PelkoItem_s, ulStartTime, 1724);
FA_API_FIELD_AT(PelkoItem_s, ulDuration, 1728);
FA_API_FIELD_AT(PelkoItem_s, lTid, 1732);
FA_API_FIELD_AT(PelkoItem_s, iSkipCount, 1736);
FA_API_FIELD_AT(PelkoItem_s, aucSkip, 1740);
FA_API_FIELD_AT(PelkoItem_s, iErrorCount, 1756);
FA_API_FIELD_AT(PelkoItem_s, aucError, 1760);
FA_API_FIELD_AT(PelkoItem_s, iExpectCount, 1824);
FA_API_FIELD_AT(PelkoItem_s, iSelectIndex, 1828);
FA_API_FIELD_AT(PelkoItem_s, iMeasureCount, 1832);
FA_API_FIELD_AT(PelkoItem_s, iExtraCount, 1836);
FA_API_FIELD_AT(PelkoItem_s, astMeasure, 1840);
FA_API_FIELD_AT(PelkoItem_s, eMeasureValueType, 5680);
FA_API_FIELD_AT(PelkoItem_s, iListCount, 5684);
FA_API_FIELD_AT(PelkoItem_s, aucList, 5688);

#undef FA_API_FIELD_AT
/// @endcond

#endif
