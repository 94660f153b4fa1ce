/// @file
/// The process-wide store of detail texts that inspection code collects while a run goes on.
///
/// A text belongs to an inspection item, named by its code pair (ucCode1, ucCode2 of the item
/// record). A raw report shows it in the item's "failed=" line. Texts outlive a run: clear them
/// between runs. One thread at a time may use the store, and no report may be written meanwhile.
#ifndef FA_API_INSPECTIONLOGGER_H
#define FA_API_INSPECTIONLOGGER_H

#include <map>
#include <string>
#include <utility>

#pragma GCC visibility push(default)

/// The store of detail texts, one for the process.
class InspectionLogger
{
public:
    virtual ~InspectionLogger();

    /// The only instance, made at the first call and never released; null when there is no memory
    /// for it. All operations are static and need no instance.
    static InspectionLogger* GetInstance();

    /// Appends `message` to the item's text, with no separator. Commas become full stops, and the
    /// text is cut to its first 100 bytes. Returns false, and stores nothing, for an empty message.
    static bool AppendInspectionLog(unsigned char code1, unsigned char code2,
                                    const std::string& message);

    /// The same, but replaces the item's text.
    static bool AssignInspectionLog(unsigned char code1, unsigned char code2,
                                    const std::string& message);

    /// Replaces `text` by the item's text. Returns false, and leaves `text` alone, where the item
    /// has no entry.
    static bool GetInspectionLog(std::string& text, unsigned char code1, unsigned char code2);

    /// Empties the item's text and keeps its entry. Returns false where there is none.
    static bool ClearOneInspectionLog(unsigned char code1, unsigned char code2);

    /// Removes every entry. Returns true.
    static bool ClearAllInspectionLog();

    // Implementation details.
private:
    using Key = std::pair<signed char, signed char>;

    InspectionLogger();

    static bool m_Store(const char* operation, Key key, const std::string& message, bool append);

    static InspectionLogger* m_pInstance;
    static std::map<Key, std::string> m_DetailedItem;
};

#pragma GCC visibility pop

#endif
