// The process-wide record of failed items and the notes that raw reports show of it.
#include <fa_api/PelkoAppClientLogger.h>

#include "PelkoAppClientLogger/report_words.h"
#include "PelkoAppClientLogger/text_format.h"

std::map<PelkoAppClientLogger::CodePair, PelkoAppClientLogger::FailedItem>
    PelkoAppClientLogger::m_itemFailedList;

bool PelkoAppClientLogger::RecordFailedItem(PelkoItem_s* item, PelkoInspectionType_e type)
{
    const FailedItem copy{*item, type};
    m_itemFailedList.insert_or_assign({copy.item.ucCode1, copy.item.ucCode2}, copy);
    return true;
}

bool PelkoAppClientLogger::ClearFailedLog()
{
    m_itemFailedList.clear();
    return true;
}

bool PelkoAppClientLogger::m_GetFailedLog(std::string& note, unsigned char code1,
                                          unsigned char code2)
{
    note.clear();
    const auto failed = m_itemFailedList.find({code1, code2});
    if (failed == m_itemFailedList.end()) {
        return true;
    }
    const PelkoItem_s& item = failed->second.item;
    note += failed->second.type == INSPECTION_AUTO ? fa::kAuto : fa::kNormal;
    note += ';';
    fa::AppendNumber(note, item.ulStartTime);
    note += ';';
    fa::AppendNumber(note, item.ulDuration);
    note += ';';
    fa::AppendNumber(note, item.lTid);
    return true;
}
