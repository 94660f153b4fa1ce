/// @file
/// The process-wide store of detail texts that inspection code collects while a run goes on.
///
/// A text belongs to an inspection item, named by its code pair (ucCode1 and ucCode2 of the item
/// record). A raw report shows it in the item's "failed=" line. Texts outlive a run: clear them
/// between runs.
///
/// Threads: one thread at a time may store, clear or get texts, and no raw report may be written by
/// another thread meanwhile.
///
/// Where memory runs out, std::bad_alloc leaves the operation, and the store and the caller's
/// string are as they were.
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
    InspectionLogger(const InspectionLogger&) = delete;
    InspectionLogger& operator=(const InspectionLogger&) = delete;

    /// Returns the only instance, which the first call makes and nothing releases; null when there
    /// is no memory for it, and the next call tries again. Any thread may call it at any time. All
    /// other operations are static and need no instance.
    static InspectionLogger* GetInstance();

    /// Appends `message` to the text of the item with these codes, with no separator. Commas become
    /// full stops, and the text is cut to its first 100 bytes. Returns true; false for an empty
    /// message, which stores nothing.
    static bool AppendInspectionLog(unsigned char code1, unsigned char code2,
                                    const std::string& message);

    /// Replaces the text of the item with these codes by `message`. Commas become full stops, and
    /// the text is cut to its first 100 bytes. Returns true; false for an empty message, which
    /// leaves the item's text as it is.
    static bool AssignInspectionLog(unsigned char code1, unsigned char code2,
                                    const std::string& message);

    /// Replaces `text` by the text of the item with these codes. Returns true; false where the item
    /// has no entry, which leaves `text` as it is.
    static bool GetInspectionLog(std::string& text, unsigned char code1, unsigned char code2);

    /// Empties the text of the item with these codes and keeps its entry. Returns true; false where
    /// there is no entry.
    static bool ClearOneInspectionLog(unsigned char code1, unsigned char code2);

    /// Removes all entries. Returns true.
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
