// Stands in for the report writer underneath the example: instead of a report, GetLog writes the
// records it was given as inputs of record_fuzzer, one file for each item, into the folder it runs
// in.
#include <fa_api/PelkoAppClientLogger.h>

#include <fstream>

bool PelkoAppClientLogger::GetLog(std::string& /*report*/, PelkoTestInfo_s* testInfo,
                                  std::vector<PelkoItem_s>* items)
{
    for (std::size_t i = 0; i < items->size(); ++i) {
        PelkoTestInfo_s info = *testInfo;
        info.iItemCount = 1;
        std::ofstream file("seed-" + std::to_string(m_mode) + "-" + std::to_string(i),
                           std::ios::binary);
        file.put(static_cast<char>(m_mode));
        file.write(reinterpret_cast<const char*>(&info), sizeof(info));
        file.write(reinterpret_cast<const char*>(&items->at(i)), sizeof(PelkoItem_s));
    }
    return true;
}
