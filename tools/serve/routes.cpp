// SPDX-License-Identifier: Apache-2.0
// Every request passes the edge before its body is read and its path is looked at. No path leads to a file.
#include "routes.h"

#include "connection.h"
#include "metrics.h"

namespace VeltraServe {

namespace {

using httplib::Request;
using httplib::Response;

// Nothing is loaded from elsewhere, and no other page may show this one or read from it.
const httplib::Headers HEADERS = {
    {"Cache-Control", "no-store"},
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src 'self'; base-uri 'none'; "
     "form-action 'none'; frame-ancestors 'none'"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Referrer-Policy", "no-referrer"},
    {"X-Content-Type-Options", "nosniff"},
};

void Refuse(const Refusal& refusal, Response& response)
{
    response.status = refusal.status;
    response.set_content(refusal.text, "text/plain; charset=utf-8");
}

void AddEdge(httplib::Server& server, const Edge& edge)
{
    server.set_default_headers(HEADERS);
    server.set_pre_routing_handler([&edge](const Request& request, Response& response) {
        const std::optional<Refusal> refusal = edge.Check(request);
        if (!refusal) {
            return httplib::Server::HandlerResponse::Unhandled;
        }
        Refuse(*refusal, response);
        return httplib::Server::HandlerResponse::Handled;
    });
    server.set_expect_100_continue_handler([&edge](const Request& request, Response& response) {
        const std::optional<Refusal> refusal = edge.Check(request);
        if (refusal) {
            Refuse(*refusal, response);
        }
        return refusal ? refusal->status : 100;
    });
    server.set_exception_handler([](const Request&, Response& response, const std::exception_ptr&) {
        Refuse({503, "Out of memory. Try again.\n"}, response);
    });
}

}  // namespace

void AddRoutes(httplib::Server& server, const Edge& edge, ServiceFeed& feed, bool isMetricsOnly)
{
    AddEdge(server, edge);
    server.Get("/metrics", [&feed](const Request&, Response& response) {
        Connection::EndReading();
        response.set_content(MetricsText(*feed.Fresh()), "text/plain; version=0.0.4; charset=utf-8");
    });
    if (!isMetricsOnly) {
        AddLiveRoutes(server, edge, feed);
    }
}

}  // namespace VeltraServe
