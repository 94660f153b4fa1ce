// The runs as JUnit XML, which CI servers show: a test suite for each run, a test case for each
// item.
#include <libxml/xmlwriter.h>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <string>

#include "outputs/failure.h"
#include "outputs/output_file.h"
#include "outputs/outputs.h"
#include "outputs/words.h"
#include "reader/report_files.h"
#include "reader/text.h"

namespace fa
{

namespace
{

const xmlChar* Xml(const std::string& text)
{
    return reinterpret_cast<const xmlChar*>(text.c_str());
}

// Writes to a memory buffer that Take empties, so that memory stays small however many runs come.
class XmlOutput
{
public:
    XmlOutput() : buffer_(xmlBufferCreate()), writer_(xmlNewTextWriterMemory(buffer_.get(), 0))
    {
        Check(writer_ != nullptr ? 0 : -1);
        Check(xmlTextWriterSetIndent(writer_.get(), 1));
        Check(xmlTextWriterStartDocument(writer_.get(), nullptr, "UTF-8", nullptr));
    }

    void Start(const char* name) { Check(xmlTextWriterStartElement(writer_.get(), Xml(name))); }

    void End() { Check(xmlTextWriterEndElement(writer_.get())); }

    void Attribute(const char* name, const std::string& value)
    {
        Check(xmlTextWriterWriteAttribute(writer_.get(), Xml(std::string(name)), Xml(value)));
    }

    void Text(const std::string& text)
    {
        Check(xmlTextWriterWriteString(writer_.get(), Xml(text)));
    }

    void EndAll() { Check(xmlTextWriterEndDocument(writer_.get())); }

    std::string Take()
    {
        Check(xmlTextWriterFlush(writer_.get()));
        std::string text(reinterpret_cast<const char*>(xmlBufferContent(buffer_.get())),
                         static_cast<std::size_t>(xmlBufferLength(buffer_.get())));
        xmlBufferEmpty(buffer_.get());
        return text;
    }

    // Implementation details.
private:
    static void Check(int result)
    {
        if (result < 0) {
            throw Failure("no XML could be made");
        }
    }

    struct Free {
        void operator()(xmlBuffer* buffer) const { xmlBufferFree(buffer); }
        void operator()(xmlTextWriter* writer) const { xmlFreeTextWriter(writer); }
    };

    std::unique_ptr<xmlBuffer, Free> buffer_;
    std::unique_ptr<xmlTextWriter, Free> writer_;
};

// JUnit wants seconds. A report does not tell its unit: this takes it as milliseconds.
std::string Seconds(std::uint32_t duration)
{
    char text[24];
    std::snprintf(text, sizeof(text), "%u.%03u", duration / 1000, duration % 1000);
    return text;
}

// The failure note and the detail say why more often than the values do, so they come first.
std::string Message(const std::vector<std::string>& lines)
{
    std::string noted;
    std::string others;
    for (const std::string& line : lines) {
        const bool isNote = line.rfind("noted: ", 0) == 0 || line.rfind("detail: ", 0) == 0;
        std::string& text = isNote ? noted : others;
        text += (text.empty() ? "" : "; ") + line;
    }
    return noted + (noted.empty() || others.empty() ? "" : "; ") + others;
}

void WriteProblem(XmlOutput& xml, const Item& item, ReportMode mode)
{
    const std::vector<std::string> lines = FailureLines(item, mode);
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\n";
    }
    xml.Start(item.hasErrorForm ? "error" : "failure");
    xml.Attribute("message", lines.empty() ? "failed" : Message(lines));
    xml.Attribute("type", item.hasErrorForm ? "record" : "inspection");
    xml.Text(text);
    xml.End();
}

void WriteCase(XmlOutput& xml, const Item& item, ReportMode mode, const std::string& className)
{
    xml.Start("testcase");
    xml.Attribute("classname", className);
    xml.Attribute("name", ValidText(item.name) + CodesText(item.codes));
    if (item.timed) {
        xml.Attribute("time", Seconds(item.duration));
    }
    if (item.result == ItemResult::kNone) {
        xml.Start("skipped");
        xml.Attribute("message", "no result");
        xml.End();
    } else if (item.result == ItemResult::kFail) {
        WriteProblem(xml, item, mode);
    }
    xml.End();
}

// What a run that did not pass says although none of its items failed, such as a run that was
// stopped: CI servers look at cases alone, and would show it as passed.
std::string RunProblem(const Run& run)
{
    const bool itemFailed = std::any_of(run.items.begin(), run.items.end(), [](const Item& item) {
        return item.result == ItemResult::kFail;
    });
    if (itemFailed || run.result == RunResult::kPass) {
        return "";
    }
    return run.result == RunResult::kNone
               ? "the run has no result"
               : std::string("the run's result: ") + ResultName(run.result);
}

void WriteSuite(XmlOutput& xml, const Run& run)
{
    const std::string problem = RunProblem(run);
    const std::size_t extra = problem.empty() ? 0 : 1;
    const auto count = [&](auto matches) {
        return static_cast<std::size_t>(std::count_if(run.items.begin(), run.items.end(), matches));
    };
    const std::string start = StartText(run);
    const std::string serial = ValidText(run.SerialNumber());
    const std::string model = ValidText(run.Value("model"));
    xml.Start("testsuite");
    xml.Attribute("name", (serial.empty() ? "(no serial number)" : serial) + " " + start);
    if (run.start != 0) {
        std::string timestamp = start;
        timestamp[10] = 'T';
        xml.Attribute("timestamp", timestamp);
    }
    xml.Attribute("tests", std::to_string(run.items.size() + extra));
    xml.Attribute("failures", std::to_string(count([](const Item& item) {
                      return item.result == ItemResult::kFail && !item.hasErrorForm;
                  })));
    xml.Attribute("errors", std::to_string(
                                extra + count([](const Item& item) { return item.hasErrorForm; })));
    xml.Attribute(
        "skipped",
        std::to_string(count([](const Item& item) { return item.result == ItemResult::kNone; })));
    xml.Attribute("time", Seconds(run.duration));
    xml.Start("properties");
    const auto property = [&](const std::string& name, const std::string& value) {
        xml.Start("property");
        xml.Attribute("name", name);
        xml.Attribute("value", value);
        xml.End();
    };
    property("result", ResultName(run.result));
    for (const Information& line : run.information) {
        property(ValidText(line.key), ValidText(JoinedLines(line.value)));
    }
    xml.End();
    const std::string className = model.empty() ? "inspection" : model;
    for (const Item& item : run.items) {
        WriteCase(xml, item, run.mode, className);
    }
    if (!problem.empty()) {
        xml.Start("testcase");
        xml.Attribute("classname", className);
        xml.Attribute("name", "(the run)");
        xml.Start("error");
        xml.Attribute("message", problem);
        xml.Attribute("type", "run");
        xml.End();
        xml.End();
    }
    xml.End();
}

}  // namespace

ExitStatus Junit(const Options& options)
{
    const ReportFiles files(options.inputs, options.output);
    OutputFile output(options.output);
    XmlOutput xml;
    bool allPassed = true;
    xml.Start("testsuites");
    const std::vector<std::string> refused =
        ReadInOrder(files, options.progress, [&](const std::string&, const Run& run) {
            WriteSuite(xml, run);
            output.Write(xml.Take());
            allPassed = allPassed && run.result == RunResult::kPass;
        });
    xml.EndAll();
    output.Write(xml.Take());
    output.Close();
    PrintRefused(refused);
    return !refused.empty() ? kNotAllRead : allPassed ? kAllPassed : kNotAllPassed;
}

}  // namespace fa
