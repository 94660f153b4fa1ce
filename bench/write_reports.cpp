// Writes the reports of a line: raw ones of about 90 kB, the same for the same numbers.
//
//     write_reports FOLDER COUNT
#include <fa_api/InspectionLogger.h>
#include <fa_api/PelkoAppClientLogger.h>
#include <fa_platform/dlog.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

// What is wanted is the reports: no log.
int __dlog_print(int, int, const char*, const char*, ...)
{
    return 0;
}

namespace
{

constexpr int kItems = 340;
constexpr int kRunsPerFolder = 1000;

class Line
{
public:
    Line()
    {
        for (int i = 0; i < kItems; ++i) {
            items_.push_back(MakeItem(i));
        }
    }

    // The report of a run; every tenth unit comes back once more.
    std::string Report(int run)
    {
        InspectionLogger::ClearAllInspectionLog();
        PelkoAppClientLogger::ClearFailedLog();
        const int unit = run - run / 11;
        PelkoTestInfo_s info{};
        info.iItemCount = kItems;
        info.iRunState = 3;
        const int minute = run % (28 * 24 * 60);
        info.stStartTime = {126,
                            11,
                            static_cast<signed char>(1 + minute / (24 * 60)),
                            static_cast<signed char>(minute / 60 % 24),
                            static_cast<signed char>(minute % 60),
                            static_cast<signed char>(run / (28 * 24 * 60)),
                            {}};
        std::snprintf(info.szSerialNumber, sizeof(info.szSerialNumber), "0A1B3CDN%06d", unit);
        unsigned int start = 0;
        for (PelkoItem_s& item : items_) {
            Measure(item);
            item.ulStartTime = start;
            start += item.ulDuration;
            info.iFailCount += item.ulResult > 3 ? 1 : 0;
        }
        info.ulDuration = start;
        std::string report;
        PelkoAppClientLogger(PelkoAppClientLogger::MODE_RAW).GetLog(report, &info, &items_);
        return report;
    }

private:
    static PelkoItem_s MakeItem(int index)
    {
        PelkoItem_s item{};
        std::snprintf(item.szName, sizeof(item.szName), "Inspection step %d", index + 1);
        std::snprintf(item.szImqs, sizeof(item.szImqs),
                      "IMQS-%04d;line 3;station 12;fixture B;operator 4711;limits of release 7",
                      index + 1);
        item.ucCode1 = static_cast<unsigned char>(0x10 + index / 16);
        item.ucCode2 = static_cast<unsigned char>(index);
        item.lTid = 1000 + index;
        item.iSelectIndex = -1;
        const auto specify = [&](PelkoSpecType_e kind, PelkoValueType_e type, int values) {
            item.iSpecType = kind;
            item.eSpecValueType = item.eMeasureValueType = type;
            item.iMeasureCount = values;
        };
        switch (index % 8) {
            case 0:
            case 1:
                specify(SPEC_RANGE, VALUE_FLOAT, 1);
                item.astSpec[0].stNValue.fValue = 4.75F;
                item.astSpec[1].stNValue.fValue = 5.25F;
                break;
            case 2:
                specify(SPEC_LESS_EQUAL, VALUE_FLOAT, 2);
                item.astSpec[0].stNValue.fValue = 5.5F;
                break;
            case 3:
                specify(SPEC_VALUE, VALUE_INTEGER, 4);
                item.astSpec[0].stNValue.iValue = 1;
                break;
            case 4:
                specify(SPEC_GREATER_EQUAL, VALUE_FLOAT, 12);
                item.astSpec[0].stNValue.fValue = 4.2F;
                break;
            case 5:
                specify(SPEC_VALUE, VALUE_STRING, 1);
                std::strcpy(reinterpret_cast<char*>(item.astSpec[0].stCValue.aucData), "T-1001.3");
                item.astMeasure[0] = item.astSpec[0];
                break;
            case 6:
                specify(SPEC_NOT_EQUAL, VALUE_HEX, 1);
                item.astSpec[0].stCValue.iLength = item.astMeasure[0].stCValue.iLength = 6;
                break;
            default:
                specify(SPEC_LIST, VALUE_INTEGER, 16);
                item.iSpecCount = 16;
                for (int i = 0; i < 16; ++i) {
                    item.astSpec[i].stNValue.iValue = item.astMeasure[i].stNValue.iValue = i * i;
                }
                break;
        }
        if (index % 8 >= 2 && index % 8 <= 4) {
            item.iListCount = item.iMeasureCount;
            for (int i = 0; i < item.iListCount; ++i) {
                item.aucList[i] = static_cast<unsigned char>(0x40 + i);
            }
        }
        return item;
    }

    void Measure(PelkoItem_s& item)
    {
        item.ulResult = random_() % 2000 == 0 ? 4 : 2;
        item.iRetryCount = random_() % 100 == 0 ? 1 : 0;
        item.ulDuration = 300 + static_cast<unsigned int>(random_() % 200);
        if (item.eMeasureValueType == VALUE_FLOAT) {
            for (int i = 0; i < item.iMeasureCount; ++i) {
                const double deviation = static_cast<double>(random_() % 1000 + random_() % 1000);
                item.astMeasure[i].stNValue.fValue = static_cast<float>(4.9 + deviation / 10'000);
            }
        } else if (item.eMeasureValueType == VALUE_HEX) {
            item.astMeasure[0].stCValue.aucData[5] = static_cast<unsigned char>(random_());
        } else if (item.iSpecType == SPEC_VALUE && item.eMeasureValueType == VALUE_INTEGER) {
            for (int i = 0; i < item.iMeasureCount; ++i) {
                item.astMeasure[i].stNValue.iValue = item.ulResult > 3 && i == 2 ? 0 : 1;
            }
        }
        if (item.ulResult > 3) {
            PelkoAppClientLogger::RecordFailedItem(&item, INSPECTION_AUTO);
            InspectionLogger::AppendInspectionLog(item.ucCode1, item.ucCode2, "outside its limits");
        }
    }

    std::vector<PelkoItem_s> items_;
    std::mt19937_64 random_{1};
};

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: write_reports FOLDER COUNT\n");
        return 2;
    }
    std::freopen("/dev/null", "w", stdout);  // for the library's lines
    const int count = std::atoi(argv[2]);
    Line line;
    std::filesystem::path folder;
    for (int run = 0; run < count; ++run) {
        if (run % kRunsPerFolder == 0) {
            folder = std::filesystem::path(argv[1]) / std::to_string(run / kRunsPerFolder);
            std::filesystem::create_directories(folder);
        }
        std::ofstream file(folder / ("run-" + std::to_string(run) + ".txt"), std::ios::binary);
        if (!(file << line.Report(run)).flush()) {
            std::perror(folder.c_str());
            return 1;
        }
    }
    return 0;
}
