// An inspection run from its first item to its reports: inspects a set, keeps detail texts and
// failures while the run goes on, prints the detailed report and writes one file for each mode.
//
//   fa-inspection-run [FOLDER]
#include <fa_api/InspectionLogger.h>
#include <fa_api/PelkoAppClientLogger.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

// Copies a text into a field of a record, cut so that its NUL fits in.
template <typename Byte, std::size_t N>
void SetText(Byte (&field)[N], const std::string& text)
{
    const std::size_t length = std::min(text.size(), N - 1);
    std::memcpy(field, text.data(), length);
    field[length] = 0;
}

// Copies sub-item codes; the count is that of the codes that fit.
template <std::size_t N>
void SetCodes(unsigned char (&field)[N], int& count, const std::vector<unsigned char>& codes)
{
    const std::size_t fitting = std::min(codes.size(), N);
    std::copy_n(codes.begin(), fitting, field);
    count = static_cast<int>(fitting);
}

template <std::size_t N>
void SetValues(PelkoTestItemValue_s (&field)[N], int& count,
               const std::vector<PelkoTestItemValue_s>& values)
{
    const std::size_t fitting = std::min(values.size(), N);
    std::copy_n(values.begin(), fitting, field);
    count = static_cast<int>(fitting);
}

PelkoTestItemValue_s Value(int number)
{
    PelkoTestItemValue_s value{};
    value.stNValue.iValue = number;
    return value;
}

PelkoTestItemValue_s Value(float number)
{
    PelkoTestItemValue_s value{};
    value.stNValue.fValue = number;
    return value;
}

PelkoTestItemValue_s Value(const char* text)
{
    PelkoTestItemValue_s value{};
    SetText(value.stCValue.aucData, text);
    return value;
}

PelkoTestItemValue_s Value(const std::vector<unsigned char>& bytes)
{
    PelkoTestItemValue_s value{};
    SetCodes(value.stCValue.aucData, value.stCValue.iLength, bytes);
    return value;
}

// The run: its record, and its items as they come in.
class InspectionRun
{
public:
    InspectionRun()
    {
        info_.stStartTime = {126, 11, 17, 0, 13, 29, {}};  // 2026-11-17 00:13:29
        SetText(info_.szSerialNumber, "0A1B3CDN900042");
        info_.iLinkType = LINK_TYPE_WIFI;
        const unsigned int address[] = {192, 168, 0, 7};
        std::copy(std::begin(address), std::end(address), info_.aulLinkValue);
        // Notes and texts of an earlier run in this process have no place in this one.
        InspectionLogger::ClearAllInspectionLog();
        PelkoAppClientLogger::ClearFailedLog();
    }

    // Begins an item; passed stays true until something fails.
    PelkoItem_s& Begin(const char* name, unsigned char code1, unsigned char code2)
    {
        PelkoItem_s item{};
        SetText(item.szName, name);
        SetText(item.szImqs, "IMQS-" + std::to_string(items_.size() + 1));
        item.ucCode1 = code1;
        item.ucCode2 = code2;
        item.ulStartTime = info_.ulDuration;
        item.ulDuration = 35;
        item.lTid = 1000 + static_cast<int>(items_.size());
        item.iSelectIndex = -1;
        item.ulResult = RESULT_PASS;
        items_.push_back(item);
        info_.ulDuration += item.ulDuration;
        return items_.back();
    }

    void Specify(PelkoSpecType_e kind, PelkoValueType_e type,
                 const std::vector<PelkoTestItemValue_s>& values)
    {
        PelkoItem_s& item = items_.back();
        item.iSpecType = kind;
        item.eSpecValueType = type;
        SetValues(item.astSpec, item.iSpecCount, values);
    }

    void Measure(PelkoValueType_e type, const std::vector<PelkoTestItemValue_s>& values,
                 const std::vector<unsigned char>& codes = {})
    {
        PelkoItem_s& item = items_.back();
        item.eMeasureValueType = type;
        SetValues(item.astMeasure, item.iMeasureCount, values);
        SetCodes(item.aucList, item.iListCount, codes);
    }

    // Notes why the item that was begun last failed.
    void Fail(const std::string& detail)
    {
        PelkoItem_s& item = items_.back();
        item.ulResult = RESULT_FAIL;
        ++info_.iFailCount;
        PelkoAppClientLogger::RecordFailedItem(&item, item.eInspType);
        InspectionLogger::AppendInspectionLog(item.ucCode1, item.ucCode2, detail);
    }

    std::string Report(PelkoAppClientLogger::Mode_e mode)
    {
        info_.iRunState = RUN_STATE_COMPLETED;
        info_.iItemCount = static_cast<int>(items_.size());
        std::string report;
        PelkoAppClientLogger(mode).GetLog(report, &info_, &items_);
        return report;
    }

private:
    PelkoTestInfo_s info_{};
    std::vector<PelkoItem_s> items_;
};

// What a set's inspection would measure; here the numbers are made up.
void Inspect(InspectionRun& run)
{
    run.Begin("Supply 5V", 0x10, 0x01).iTid = 1;
    run.Specify(SPEC_RANGE, VALUE_FLOAT, {Value(4.75F), Value(5.25F)});
    run.Measure(VALUE_FLOAT, {Value(5.02F)});

    run.Begin("Standby power", 0x10, 0x02).iRetryCount = 2;
    run.Specify(SPEC_LESS_EQUAL, VALUE_FLOAT, {Value(0.5F)});
    run.Measure(VALUE_FLOAT, {Value(0.71F)});
    run.Fail("0.71 W, limit 0.50 W");

    PelkoItem_s& inputs = run.Begin("Inputs", 0x20, 0x01);
    run.Specify(SPEC_VALUE, VALUE_INTEGER, {Value(1)});
    run.Measure(VALUE_INTEGER, {Value(1), Value(1), Value(0)}, {0x08, 0x09, 0x07});
    SetCodes(inputs.aucSkip, inputs.iSkipCount, {0x0A, 0x0B});
    SetCodes(inputs.aucError, inputs.iErrorCount, {0x07});
    run.Fail("PC: no sync");

    PelkoItem_s& wifi = run.Begin("WiFi", 0x30, 0x01);
    wifi.eInspType = INSPECTION_AUTO;
    wifi.eMsgDataType = VALUE_STRING;
    wifi.stMsgData = Value("line-3").stCValue;
    wifi.stMsgData.iLength = 6;  // present
    run.Specify(SPEC_GREATER, VALUE_INTEGER, {Value(-60)});
    run.Measure(VALUE_INTEGER, {Value(-48)}, {0x25});

    PelkoItem_s& serial = run.Begin("Serial link", 0x30, 0x02);
    serial.eMsgDataType = VALUE_INTEGER;
    serial.stMsgData = Value(std::vector<unsigned char>{0x00, 0x01, 0xC2, 0x00}).stCValue;

    run.Begin("Software", 0x40, 0x01);
    run.Specify(SPEC_VALUE, VALUE_STRING, {Value("T-SIM-1001.3")});
    run.Measure(VALUE_STRING, {Value("T-SIM-1001.3")}, {0xAC});

    run.Begin("Wired MAC", 0x40, 0x02);
    run.Specify(SPEC_NOT_EQUAL, VALUE_HEX, {Value(std::vector<unsigned char>(6, 0))});
    run.Measure(VALUE_HEX, {Value({0x02, 0x00, 0x5E, 0x10, 0x0A, 0xFF})}, {0x16});

    run.Begin("Gamma table", 0x50, 0x01);
    std::vector<PelkoTestItemValue_s> gamma;
    gamma.reserve(16);
    for (int step = 0; step < 16; ++step) {
        gamma.push_back(Value(step * step));
    }
    run.Specify(SPEC_LIST, VALUE_INTEGER, gamma);
    run.Measure(VALUE_INTEGER, gamma);

    // The multiple-data item: a simple report shows the selected value only.
    run.Begin("PLL clocks", 0xCC, 0x11).iSelectIndex = 2;
    run.Specify(SPEC_GREATER_EQUAL, VALUE_INTEGER, {Value(980)});
    run.Measure(VALUE_INTEGER, {Value(998), Value(0), Value(1003)}, {0x40, 0x41, 0x42});

    run.Begin("Temperature", 0x60, 0x01);
    run.Specify(SPEC_LESS, VALUE_FLOAT, {Value(70.0F)});
    run.Measure(VALUE_FLOAT, {Value(41.25F), Value(43.5F)}, {0x94, 0x95});

    run.Begin("Tuner", 0x70, 0x01).ulErrorFlag = ERROR_FLAG_DATA | ERROR_FLAG_LIST;
    run.Fail("record refused");

    run.Begin("Speaker", 0x70, 0x02).ulResult = RESULT_NONE;
}

void WriteFile(const std::string& path, const std::string& text)
{
    std::ofstream file(path, std::ios::binary);
    if (!(file << text << std::flush)) {
        throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
    }
    std::cout << "written: " << path << "\n";
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc > 2 || (argc == 2 && argv[1][0] == '-')) {
        const bool help = std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0;
        (help ? std::cout : std::cerr)
            << "usage: fa-inspection-run [--help] [FOLDER]\n\n"
               "Inspects an imaginary set that has three faults, prints the detailed report, and\n"
               "writes it in all three modes to report-simple.txt, report-detail.txt and\n"
               "report-raw.txt in FOLDER, by default the current one. What is there is "
               "overwritten.\n\n"
               "  -h, --help  print this text\n\n"
               "Exit status: 0 when the reports are written, 1 when one cannot be; 2 for a wrong\n"
               "command line.\n";
        return help ? 0 : 2;
    }
    try {
        const std::string folder = argc > 1 ? argv[1] : ".";
        InspectionRun run;
        Inspect(run);
        std::cout << run.Report(PelkoAppClientLogger::MODE_DETAIL);
        WriteFile(folder + "/report-simple.txt", run.Report(PelkoAppClientLogger::MODE_SIMPLE));
        WriteFile(folder + "/report-detail.txt", run.Report(PelkoAppClientLogger::MODE_DETAIL));
        WriteFile(folder + "/report-raw.txt", run.Report(PelkoAppClientLogger::MODE_RAW));
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "fa-inspection-run: " << error.what() << "\n";
        return 1;
    }
}
