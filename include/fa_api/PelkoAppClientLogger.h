/// @file
/// The report writer of a factory network inspection run: records in, key=value text out.
///
///     PelkoAppClientLogger logger(PelkoAppClientLogger::MODE_DETAIL);
///     std::string report;
///     logger.GetLog(report, &testInfo, &items);
///
/// Record and vector pointers must not be null; what they point to is only read, and only during
/// the call. A text operation replaces the whole content of its output string.
///
/// Threads: any number of threads may write reports at the same time, with one object or several.
/// One thread at a time may change the failure notes or the detail texts (InspectionLogger), and
/// only while no other writes a raw report.
///
/// Where memory runs out, std::bad_alloc leaves the operation; the failure notes and the output
/// string are as they were, except as GetLog says.
#ifndef FA_API_PELKOAPPCLIENTLOGGER_H
#define FA_API_PELKOAPPCLIENTLOGGER_H

#include <fa_api/PelkoRecords.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#pragma GCC visibility push(default)

/// The report writer. It holds its mode and nothing else.
class PelkoAppClientLogger
{
public:
    /// What a report shows.
    enum Mode_e : int {
        MODE_SIMPLE = 0,  ///< for people: value lists on indented lines, no timing
        MODE_DETAIL = 1,  ///< timing, identifiers and local-dimming versions as well
        MODE_RAW = 2      ///< codes, failure notes and detail texts as well
    };

    /// Makes a writer whose reports show what `mode` says, for good: it cannot be assigned.
    explicit PelkoAppClientLogger(Mode_e mode);
    virtual ~PelkoAppClientLogger();

    /// Writes the whole report of a run: the information text, then the sections of the first
    /// iItemCount items of the vector. Returns true. Throws std::out_of_range when iItemCount
    /// exceeds the vector's length; `report` then holds the text up to the last item there is.
    /// Where memory runs out, it holds what it held, or the text up to a whole item.
    bool GetLog(std::string& report, PelkoTestInfo_s* testInfo, std::vector<PelkoItem_s>* items);

    /// Writes the summary and the information section of a report, for which it asks the platform.
    /// A model or an option that the platform does not tell stays empty, and a component's version
    /// becomes a mask, "*****" or "Not Supported". Returns true.
    bool GetInfoLog(std::string& text, PelkoTestInfo_s* testInfo);

    /// Writes the section of one item under the number `index` + 1; `index` is the item's position,
    /// counted from 0. In the raw mode it reads the failure notes and the detail texts. Returns
    /// true.
    bool GetItemLog(std::string& text, PelkoItem_s* item, int index);

    /// Writes all result values of an item, as the mode joins and labels them. Returns true; false
    /// where the item has none to show, which leaves `text` as it is.
    bool GetResultLog(std::string& text, PelkoItem_s* item);

    /// Writes the specification of an item, as the mode joins its values. Returns true; false where
    /// there is none or a value of it has no text, which leaves `text` as it is.
    bool GetSpecLog(std::string& text, PelkoItem_s* item);

    /// Keeps a copy of a failed item for the whole process, in place of an earlier one with the
    /// same code pair. Raw reports show a note of it with every item of that pair. Returns true.
    static bool RecordFailedItem(PelkoItem_s* item, PelkoInspectionType_e type);

    /// Forgets all failed items. Notes outlive a run and every object: clear them between runs.
    /// Returns true.
    static bool ClearFailedLog();

    // Implementation details.
private:
    using CodePair = std::pair<unsigned char, unsigned char>;
    struct FailedItem {
        PelkoItem_s item;
        PelkoInspectionType_e type;
    };

    bool m_TimeToString(std::string& text, PelkoInfoTime_s time);

    bool m_GetVersionInfo(std::string& text);
    bool m_GetLdVersion(unsigned char selector, std::string& text);
    bool m_GetSoVersion(std::string& text);

    bool m_GetMsgDataLog(std::string& text, PelkoItem_s* item);
    bool m_GetSpecLog(std::string& text, PelkoItem_s* item);
    bool m_GetResultLog(std::string& text, PelkoItem_s* item);
    bool m_GetResultLog(std::string& text, PelkoItem_s* item, int index);

    bool m_ValueToString(std::string& text, PelkoTestItemValue_s value, PelkoValueType_e type);
    bool m_ValueToString(std::string& text, PelkoItemNValue_s value, PelkoValueType_e type);
    bool m_ValueToString(std::string& text, PelkoItemCValue_s value, PelkoValueType_e type);
    bool m_IsMultipleDataCode(unsigned char code1, unsigned char code2);

    static bool m_GetFailedLog(std::string& note, unsigned char code1, unsigned char code2);

    const Mode_e m_mode;
    static std::map<CodePair, FailedItem> m_itemFailedList;
};

#pragma GCC visibility pop

#endif
