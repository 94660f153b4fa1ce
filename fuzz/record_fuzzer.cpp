// Whole records of arbitrary bytes through every operation of the report writer and the detail
// store: whatever a record holds, nothing reads or writes outside it.
//
//     cmake -S . -B build/fuzz -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++
//         -DFA_API_BUILD_FUZZ=ON -DFA_API_SANITIZE=address,undefined
//     cmake --build build/fuzz -j "$(nproc)"
//     mkdir -p build/fuzz/findings build/fuzz/inputs
//     build/fuzz/fuzz/record_fuzzer -close_fd_mask=1 -max_total_time=60
//         -artifact_prefix=build/fuzz/findings/ build/fuzz/inputs fuzz/corpus/record
//
// An input is a byte for the mode, which may be 3 and so none of the enumeration, a PelkoTestInfo_s
// and any number of PelkoItem_s; what is missing of the last one is zero. The corpus has few inputs
// that reach every edge; the program replay_records runs them with any compiler, as a test. To
// renew it:
//
//     build/fuzz/fuzz/record_fuzzer -set_cover_merge=1 -use_counters=0 NEW-FOLDER build/fuzz/inputs
//         fuzz/corpus/record
#include <fa_api/InspectionLogger.h>
#include <fa_api/PelkoAppClientLogger.h>
#include <fa_api/automation_api.h>
#include <fa_platform/simulation.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

namespace
{

void Expect(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

template <typename Record>
Record Take(const std::uint8_t*& data, std::size_t& size)
{
    Record record{};
    const std::size_t taken = std::min(size, sizeof(record));
    std::memcpy(static_cast<void*>(&record), data, taken);
    data += taken;
    size -= taken;
    return record;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    fa_platform::SetLogSink([](int, int, const std::string&, const std::string&) {});
    fa_platform::UseProfileText("[factory_option]\n254=a,b,c,d\n[system_info_string]\n133=a\\nb\n");
    const auto mode = static_cast<PelkoAppClientLogger::Mode_e>(Take<std::uint8_t>(data, size) % 4);
    auto info = Take<PelkoTestInfo_s>(data, size);
    std::vector<PelkoItem_s> items;
    while (size > 0) {
        items.push_back(Take<PelkoItem_s>(data, size));
    }
    items.shrink_to_fit();  // reading past the last record shows

    PelkoAppClientLogger logger(mode);
    std::string text;
    for (PelkoItem_s& item : items) {
        PelkoAppClientLogger::RecordFailedItem(&item, item.eInspType);
        const std::string imqs(item.szImqs, sizeof(item.szImqs));
        InspectionLogger::AssignInspectionLog(item.ucCode1, item.ucCode2, imqs);
        InspectionLogger::AppendInspectionLog(item.ucCode1, item.ucCode2, imqs);
        Expect(InspectionLogger::GetInspectionLog(text, item.ucCode1, item.ucCode2));
        Expect(text.size() <= 100 && text.find(',') == std::string::npos);
        logger.GetItemLog(text, &item, item.iTid);
        text = "untouched";
        Expect(logger.GetSpecLog(text, &item) || text == "untouched");
        text = "untouched";
        Expect(logger.GetResultLog(text, &item) || text == "untouched");
        std::string line = imqs.c_str();
        unsigned char bytes[32] = {};
        const int count = ospd_char_to_hexadecimal(0, 0, 0, line.data(), bytes);
        Expect(count >= 0 && count <= 31 && ospd_print_array(bytes) <= count);
    }
    try {
        Expect(logger.GetLog(text, &info, &items));
        Expect(info.iItemCount <= static_cast<int>(items.size()));
    } catch (const std::out_of_range&) {
        Expect(info.iItemCount > static_cast<int>(items.size()));
    }
    PelkoAppClientLogger::ClearFailedLog();
    InspectionLogger::ClearAllInspectionLog();
    return 0;
}
