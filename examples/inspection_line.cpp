// Run after run in one process, as a station of a line has them: imaginary sets are inspected, a
// failed one mostly comes back once, and each run is written as a raw report of its own.
//
//   fa-inspection-line FOLDER [RUNS [SEED [DAY [WATTS]]]]
#include <fa_api/InspectionLogger.h>
#include <fa_api/PelkoAppClientLogger.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace
{

constexpr int kRunsPerDay = 40;

// What all sets of the line are asked.
std::vector<PelkoItem_s> MakeItems()
{
    std::vector<PelkoItem_s> items;
    const auto add = [&](const char* name, unsigned char code1, unsigned char code2,
                         PelkoSpecType_e kind, PelkoValueType_e type,
                         const std::vector<unsigned char>& codes) {
        PelkoItem_s item{};
        std::snprintf(item.szName, sizeof(item.szName), "%s", name);
        item.ucCode1 = code1;
        item.ucCode2 = code2;
        item.eInspType = INSPECTION_AUTO;
        item.iSelectIndex = -1;
        item.iSpecType = kind;
        item.eSpecValueType = item.eMeasureValueType = type;
        for (const unsigned char code : codes) {
            item.aucList[item.iListCount++] = code;
        }
        items.push_back(item);
    };
    add("Supply 5V", 0x10, 0x01, SPEC_RANGE, VALUE_FLOAT, {});
    items.back().astSpec[0].stNValue.fValue = 4.75F;
    items.back().astSpec[1].stNValue.fValue = 5.25F;
    add("Standby power", 0x10, 0x02, SPEC_LESS_EQUAL, VALUE_FLOAT, {});
    items.back().astSpec[0].stNValue.fValue = 0.5F;
    add("WiFi", 0x30, 0x01, SPEC_GREATER, VALUE_INTEGER, {0x25});
    items.back().astSpec[0].stNValue.iValue = -60;
    add("PLL clocks", 0x31, 0x01, SPEC_GREATER_EQUAL, VALUE_INTEGER, {0x40, 0x42});
    items.back().astSpec[0].stNValue.iValue = 980;
    add("Temperature", 0x60, 0x01, SPEC_LESS, VALUE_FLOAT, {0x94, 0x95});
    items.back().astSpec[0].stNValue.fValue = 52.0F;
    add("Inputs", 0x20, 0x01, SPEC_VALUE, VALUE_INTEGER, {0x08, 0x09, 0x07});
    items.back().astSpec[0].stNValue.iValue = 1;
    return items;
}

class Line
{
public:
    Line(unsigned int seed, double watts) : items_(MakeItems()), random_(seed), watts_(watts) {}

    // Inspects a set; tells whether it passed.
    bool Inspect(std::string& report, const std::string& serialNumber, int day, int minute)
    {
        // Notes and texts of the run before have no place in this one.
        InspectionLogger::ClearAllInspectionLog();
        PelkoAppClientLogger::ClearFailedLog();
        PelkoTestInfo_s info{};
        info.stStartTime = {126,
                            11,
                            static_cast<signed char>(day),
                            static_cast<signed char>(8 + minute / 60),
                            static_cast<signed char>(minute % 60),
                            0,
                            {}};
        std::snprintf(info.szSerialNumber, sizeof(info.szSerialNumber), "%s", serialNumber.c_str());
        info.iRunState = RUN_STATE_COMPLETED;
        info.iItemCount = static_cast<int>(items_.size());

        const double temperature = Normal(42, 3);
        const bool noSignal = OneIn(70);
        Measure(info, 0, {Normal(5, 0.09)}, "the supply is off");
        Measure(info, 1, {Normal(watts_, 0.03)}, "takes too much in standby");
        Measure(info, 2, {Normal(-48, 4.4)}, "the aerial is weak");
        Measure(info, 3, {Normal(1000, 6), Normal(1004, 6)}, "does not lock");
        Measure(info, 4, {temperature, temperature + Normal(2, 1)}, "too warm");
        Measure(info, 5, {1, 1, noSignal ? 0.0 : 1.0}, "PC: no sync");
        PelkoAppClientLogger(PelkoAppClientLogger::MODE_RAW).GetLog(report, &info, &items_);
        return info.iFailCount == 0;
    }

    bool OneIn(unsigned int runs) { return random_() % runs == 0; }

private:
    double Normal(double mean, double deviation)
    {
        return std::normal_distribution<double>(mean, deviation)(random_);
    }

    void Measure(PelkoTestInfo_s& info, std::size_t index, const std::vector<double>& values,
                 const char* reason)
    {
        PelkoItem_s& item = items_[index];
        item.ulStartTime = info.ulDuration;
        item.ulDuration = 30 + static_cast<unsigned int>(random_() % 20 * (index + 1));
        item.iRetryCount = OneIn(25) ? 1 : 0;
        item.iMeasureCount = static_cast<int>(values.size());
        bool passed = true;
        for (std::size_t i = 0; i < values.size(); ++i) {
            PelkoItemNValue_s& number = item.astMeasure[i].stNValue;
            if (item.eMeasureValueType == VALUE_FLOAT) {
                number.fValue = static_cast<float>(std::round(values[i] * 100) / 100);
            } else {
                number.iValue = static_cast<int>(values[i]);
            }
            passed = passed && IsWithin(item, i);
        }
        item.ulResult = passed ? RESULT_PASS : RESULT_FAIL;
        info.ulDuration += item.ulDuration;
        if (!passed) {
            ++info.iFailCount;
            PelkoAppClientLogger::RecordFailedItem(&item, item.eInspType);
            InspectionLogger::AppendInspectionLog(item.ucCode1, item.ucCode2, reason);
        }
    }

    static bool IsWithin(const PelkoItem_s& item, std::size_t index)
    {
        const PelkoItemNValue_s& value = item.astMeasure[index].stNValue;
        const PelkoItemNValue_s& limit = item.astSpec[0].stNValue;
        switch (item.iSpecType) {
            case SPEC_RANGE:
                return value.fValue >= limit.fValue &&
                       value.fValue <= item.astSpec[1].stNValue.fValue;
            case SPEC_LESS_EQUAL:
                return value.fValue <= limit.fValue;
            case SPEC_LESS:
                return value.fValue < limit.fValue;
            case SPEC_GREATER:
                return value.iValue > limit.iValue;
            case SPEC_GREATER_EQUAL:
                return value.iValue >= limit.iValue;
            default:
                return value.iValue == limit.iValue;
        }
    }

    std::vector<PelkoItem_s> items_;
    std::mt19937 random_;
    double watts_;
};

}  // namespace

int main(int argc, char** argv)
{
    const int runs = argc > 2 ? std::atoi(argv[2]) : 200;
    if (argc < 2 || argc > 6 || argv[1][0] == '-' || runs < 1) {
        const bool help = argc == 2 && (std::strcmp(argv[1], "--help") == 0 ||  //
                                        std::strcmp(argv[1], "-h") == 0);
        std::fprintf(
            help ? stdout : stderr,
            "usage: fa-inspection-line [--help] FOLDER [RUNS [SEED [DAY [WATTS]]]]\n\n"
            "Inspects imaginary sets, 40 a day, and writes a raw report of each run into\n"
            "FOLDER, which is there already. RUNS, by default 200, are made from DAY of\n"
            "November 2026 on, by default the 2nd. The same SEED, by default 1, gives the\n"
            "same runs. The sets take about WATTS in standby, by default 0.41; 0.50 are\n"
            "allowed.\n\n"
            "  -h, --help  print this text\n\n"
            "Exit status: 0 when the reports are written, 1 when one cannot be; 2 for a\n"
            "wrong command line.\n");
        return help ? 0 : 2;
    }
    const auto seed = static_cast<unsigned int>(argc > 3 ? std::atoi(argv[3]) : 1);
    const int firstDay = argc > 4 ? std::atoi(argv[4]) : 2;
    Line line(seed, argc > 5 ? std::atof(argv[5]) : 0.41);
    int unit = firstDay * 1000;
    for (int run = 0; run < runs; ++run) {
        const int day = firstDay + run / kRunsPerDay;
        const std::string serialNumber = "0A1B3CDN9" + std::to_string(100'000 + unit).substr(1);
        std::string report;
        const bool passed = line.Inspect(report, serialNumber, day, run % kRunsPerDay * 12);
        unit += passed || line.OneIn(3) ? 1 : 0;  // else the set comes back at once
        const std::string path = std::string(argv[1]) + "/run-" + std::to_string(day) + "-" +
                                 std::to_string(1000 + run % kRunsPerDay).substr(1) + ".txt";
        if (!(std::ofstream(path, std::ios::binary) << report << std::flush)) {
            std::fprintf(stderr, "fa-inspection-line: cannot write %s\n", path.c_str());
            return 1;
        }
    }
    return 0;
}
