// The report writer object and the assembly of a whole report.
#include <fa_api/PelkoAppClientLogger.h>
#include <fa_platform/factory.h>

#include <algorithm>

#include "common/log.h"

PelkoAppClientLogger::PelkoAppClientLogger(Mode_e mode) : m_mode(mode) {}

PelkoAppClientLogger::~PelkoAppClientLogger() = default;

bool PelkoAppClientLogger::GetLog(std::string& report, PelkoTestInfo_s* testInfo,
                                  std::vector<PelkoItem_s>* items)
{
    const FCBlockProfiler profiler(fa::BaseName(__FILE__), __LINE__, __func__);

    std::string part;
    GetInfoLog(part, testInfo);
    part += "\n\n";
    report = part;
    // The caller's string grows by whole items: what an item that is missing leaves there is
    // promised.
    for (int i = 0; i < testInfo->iItemCount; ++i) {
        PelkoItem_s& item = items->at(static_cast<std::size_t>(i));
        GetItemLog(part, &item, i);
        part += '\n';
        if (i == 0) {
            // Sections are about equally long. Growing step by step would touch twice the memory.
            const auto count =
                std::min(static_cast<std::size_t>(testInfo->iItemCount), items->size());
            report.reserve(report.size() + count * part.size());
        }
        report += part;
    }
    FA_LOG_AND_PRINT(fa::kInfo, "log mode: %d, len: %d", static_cast<int>(m_mode),
                     static_cast<int>(report.size()));
    return true;
}
