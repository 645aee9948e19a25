// SPDX-License-Identifier: Apache-2.0
// The live page: its files, which are part of the program, the stream of states, and the commands of its simulator. A
// stream is a thread that waits for the next look; a page that reads slowly misses looks, and nothing is queued for it.
#include <atomic>
#include <memory>

#include "connection.h"
#include "control/iveltra_control.h"
#include "live_state.h"
#include "output.h"
#include "page.h"
#include "reach.h"
#include "routes.h"
#include "scenario/scenario.h"
#include "scenario_files.h"
#include "utils/json_utils.h"

namespace VeltraServe {

using httplib::Request;
using httplib::Response;
using TAVO::Veltra::JsonUtils;
using VeltraTool::JsonText;
using VeltraTool::MemberOf;
using VeltraTool::TextOf;
using VeltraTool::ToolError;

namespace {

constexpr size_t MAX_STREAMS = 16;
constexpr std::chrono::seconds HEARTBEAT{2};  // so that the end of a page is noticed while the service does not answer
constexpr char JSON[] = "application/json";

// One of the streams that are open; releases its place when the connection ends.
// A count and no lock: more than MAX_STREAMS may increment it at once, but each beyond the limit sees that and is
// refused.
class StreamPlace {
public:
    explicit StreamPlace(std::atomic<size_t>& open) : open_(open), isTaken_(open.fetch_add(1) < MAX_STREAMS) {}
    ~StreamPlace() { open_.fetch_sub(1); }
    StreamPlace(const StreamPlace&) = delete;
    StreamPlace& operator=(const StreamPlace&) = delete;

    bool IsTaken() const { return isTaken_; }

private:
    std::atomic<size_t>& open_;
    const bool isTaken_;
};

struct Live {
    ServiceFeed& feed;
    const std::string setup;
    LiveState state;
    std::atomic<size_t> openStreams{0};
};

std::string EventText(const char* name, const std::string& data)
{
    return std::string("event: ") + name + "\ndata: " + data + "\n\n";
}

void Stream(const std::shared_ptr<Live>& live, Response& response)
{
    const auto place = std::make_shared<StreamPlace>(live->openStreams);
    if (!place->IsTaken()) {
        response.status = 503;
        response.set_content("Too many pages are open. Close one of them.\n", "text/plain; charset=utf-8");
        return;
    }
    const auto number = std::make_shared<uint64_t>(0);
    // The library calls this on the connection's thread until it returns false, which a failed write does. `place` and
    // `number` live as long as the response.
    response.set_chunked_content_provider(
        "text/event-stream", [live, place, number](size_t offset, httplib::DataSink& sink) {
            std::string text = offset == 0 ? "retry: 1000\n" + EventText("setup", live->setup) : "";
            // The first look may be an old one, which is replaced within a second.
            if (const SharedLook look = live->feed.After(*number, std::chrono::steady_clock::now() + HEARTBEAT)) {
                text += EventText("state", live->state.TextOf(look));
                *number = look->number;
            } else {
                // A comment of the event stream: the browser ignores it, and the write fails if the browser has gone.
                text += ":\n\n";
            }
            return sink.write(text.data(), text.size());
        });
}

// The command as the service takes it: the text of an installed scenario is put in for its name.
Json::Value CommandOf(const std::string& body)
{
    Json::Value command = JsonUtils::StringToJson(body);
    if (!command.isObject()) {
        throw ToolError(VeltraTool::EXIT_USAGE, "the command is no JSON object", "send for example {\"do\": \"off\"}");
    }
    if (TextOf(MemberOf(command, "do")) != "load" || command.isMember("scenario")) {
        return command;
    }
    const std::string name = TextOf(MemberOf(command, "name"));
    // Compared with the names of the installed files, never joined to a path: a request cannot name another file.
    for (const VeltraTool::ScenarioFile& file : VeltraTool::InstalledScenarios()) {
        if (file.name == name) {
            command["scenario"] = TAVO::Veltra::ConfigNode::Parse(VeltraTool::ReadScenario(file), file.path).Value();
            return command;
        }
    }
    throw ToolError(VeltraTool::EXIT_USAGE, "no scenario of this name is installed", "send it as \"scenario\"");
}

int StatusOf(const ToolError& error)
{
    switch (error.Code()) {
        case VeltraTool::EXIT_UNREACHABLE:
            return 503;
        case VeltraTool::EXIT_TIMED_OUT:
            return 504;
        case VeltraTool::EXIT_NOT_SUPPORTED:
            return 403;
        default:
            return 400;
    }
}

void Simulate(const Request& request, Response& response, bool isStartingService)
{
    Connection::EndReading();
    Json::Value document;
    try {
        const Json::Value command = CommandOf(request.body);
        std::string answer;
        const int32_t result = VeltraTool::ReachControl(isStartingService)->Simulate(JsonText(command), answer);
        document = VeltraTool::RequireAnswer(result, answer);
    } catch (const ToolError& error) {
        response.status = StatusOf(error);
        document["error"] = error.what();
        document["fix"] = error.Fix();
    } catch (const TAVO::Veltra::ConfigError& error) {  // of an installed scenario
        response.status = 500;
        document["error"] = error.what();
    }
    response.set_content(JsonText(document), JSON);
}

}  // namespace

void AddLiveRoutes(httplib::Server& server, const Edge& edge, ServiceFeed& feed)
{
    static constexpr struct {
        const char* path;
        std::string_view content;
        const char* type;
    } FILES[] = {
        {"/", Page::LIVE_HTML, "text/html; charset=utf-8"},
        {"/live\\.js", Page::LIVE_JS, "text/javascript; charset=utf-8"},
        {"/live\\.css", Page::LIVE_CSS, "text/css; charset=utf-8"},
        {"/curves\\.js", Page::CURVES_JS, "text/javascript; charset=utf-8"},
        {"/page\\.css", Page::PAGE_CSS, "text/css; charset=utf-8"},
        {"/uplot\\.js", Page::UPLOT_JS, "text/javascript; charset=utf-8"},
        {"/uplot\\.css", Page::UPLOT_CSS, "text/css; charset=utf-8"},
        {"/icon\\.svg", Page::ICON_SVG, "image/svg+xml"},
    };
    for (const auto& file : FILES) {
        server.Get(file.path, [&file](const Request&, Response& response) {
            response.set_content(file.content.data(), file.content.size(), file.type);
        });
    }
    const std::shared_ptr<Live> live(new Live{feed, LiveSetup(edge.IsReadOnly()), {}, {}});
    server.Get("/events", [live](const Request&, Response& response) { Stream(live, response); });
    server.Post("/simulate", [&feed](const Request& request, Response& response) {
        Simulate(request, response, feed.IsStartingService());
    });
}

}  // namespace VeltraServe
