// Any bytes as a report file: nothing is read outside, what is refused is refused with a line, and
// how much of the file is in memory at a time makes no difference. All statistics are made, and all
// texts, of what is read.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "reader/report_reader.h"
#include "reader/text.h"
#include "statistics/collector.h"

namespace
{

// What a reader of such a window tells of the file: its runs in short, or the refusal.
std::string Told(fa::ReportReader& reader, const std::string& path, fa::Collector& collector)
{
    std::string told;
    fa::RunOrder order = 0;
    std::vector<fa::Value> values;
    try {
        reader.Read(path, [&](const fa::Run& run) {
            told += fa::ValidText(run.SerialNumber()) + fa::JoinedLines(run.Value("option"));
            for (const fa::Item& item : run.items) {
                fa::SplitValues(item, run.mode, values);
                const std::size_t limits =
                    item.spec ? fa::ReadSpec(*item.spec, run.mode).limits.size() : 0;
                told.append(item.nameLine).append(std::to_string(values.size() + limits * 100));
                told += std::to_string(fa::SplitNames(item.skip).size());
            }
            collector.Take(order++, run);
        });
        collector.Finish();
    } catch (const fa::RefusedFile& refused) {
        return refused.what();
    }
    return told;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const int file = memfd_create("report", 0);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    if (ftruncate(file, 0) != 0 || pwrite(file, data, size, 0) != static_cast<ssize_t>(size)) {
        std::abort();
    }
    static fa::ReportReader whole(1 << 16);
    fa::ReportReader pieces(1 + size % 61);
    fa::Collector collector("mm");
    if (Told(whole, path, collector) != Told(pieces, path, collector)) {
        std::abort();
    }
    return 0;
}
