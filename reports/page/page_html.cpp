#include "page/page_html.h"

#include <gio/gio.h>

#include <algorithm>

#include "options.h"
#include "outputs/json_writer.h"
#include "outputs/summary.h"
#include "reader/text.h"

extern "C" {  // the generated header does not say so
#include "page_resources.h"
}

namespace fa
{

namespace
{

// A file of this folder, or the library of charts, which are part of the program.
std::string Resource(const std::string& name)
{
    g_autoptr(GBytes) bytes = g_resource_lookup_data(page_get_resource(), ("/page/" + name).c_str(),
                                                     G_RESOURCE_LOOKUP_FLAGS_NONE, nullptr);
    if (bytes == nullptr) {
        throw Failure("the program lacks " + name);
    }
    gsize size = 0;
    const auto* const data = static_cast<const char*>(g_bytes_get_data(bytes, &size));
    return {data, size};
}

// How a content security policy names a script or style that stands in the page.
std::string Hash(const std::string& text)
{
    g_autoptr(GChecksum) checksum = g_checksum_new(G_CHECKSUM_SHA256);
    g_checksum_update(checksum, reinterpret_cast<const guchar*>(text.data()),
                      static_cast<gssize>(text.size()));
    guint8 digest[32];
    gsize size = sizeof(digest);
    g_checksum_get_digest(checksum, digest, &size);
    g_autofree char* base64 = g_base64_encode(digest, size);
    return std::string("'sha256-") + base64 + "'";
}

// Of JSON, in which these characters stand in texts only: nothing in it ends the element it is in.
std::string WithoutMarkup(const std::string& json)
{
    std::string text;
    for (std::size_t i = 0; i < json.size(); ++i) {
        const std::string_view rest = std::string_view(json).substr(i, 3);
        if (rest[0] == '<') {
            text += "\\u003c";
        } else if (rest[0] == '>') {
            text += "\\u003e";
        } else if (rest[0] == '&') {
            text += "\\u0026";
        } else if (rest == "\u2028" || rest == "\u2029") {
            text += rest == "\u2028" ? "\\u2028" : "\\u2029";
            i += 2;
        } else {
            text += rest[0];
        }
    }
    return text;
}

void AddFailingRuns(JsonWriter& writer, const FailingRuns& failing, const ReportFiles& files)
{
    writer.Count("failing_runs_in_all", failing.Count());
    std::vector<const FailingRuns::Latest::value_type*> runs;
    runs.reserve(failing.Kept().size());
    for (const auto& entry : failing.Kept()) {
        runs.push_back(&entry);
    }
    std::reverse(runs.begin(), runs.end());
    writer.List("failing_runs", runs, [&](const auto* entry) {
        const auto& [key, run] = *entry;
        writer.Object(nullptr, [&, &run = run, &key = key] {
            writer.Text("start", run.start);
            writer.Text("serial_number", run.serialNumber);
            writer.Text("result", run.result);
            writer.Text("group", run.group);
            writer.Text("file", ValidText(files.At(FileOf(key.second))));
            writer.List("reasons", run.reasons,
                        [&](const std::string& reason) { writer.Text(nullptr, reason); });
            writer.Count("more_reasons", run.moreReasons);
        });
    });
}

// Puts a text in place of a mark of the page.
void Fill(std::string& page, const std::string& mark, const std::string& text)
{
    page.replace(page.find(mark), mark.size(), text);
}

}  // namespace

std::string PageHtml(const Summary& summary, const FailingRuns& failing, const ReportFiles& files,
                     const std::string& by, const std::vector<std::string>& refused)
{
    JsonWriter writer;
    writer.Object(nullptr, [&] {
        AddSummary(writer, summary, by, refused);
        AddFailingRuns(writer, failing, files);
    });
    const std::string style = Resource("page.css");
    const std::string library = Resource("chart.min.js");
    const std::string script = Resource("page.js");
    std::string page = Resource("page.html");
    Fill(page, "{policy}",
         "default-src 'none'; base-uri 'none'; form-action 'none'; style-src " + Hash(style) +
             "; script-src " + Hash(library) + " " + Hash(script));
    Fill(page, "{style}", style);
    Fill(page, "{library}", library);
    Fill(page, "{script}", script);
    // The last one, because it may hold any text.
    Fill(page, "{data}", WithoutMarkup(writer.Finish(false)));
    return page;
}

}  // namespace fa
