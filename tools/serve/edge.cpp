// SPDX-License-Identifier: Apache-2.0
// A web page of another site can make the browser of its reader send requests to this server. Three checks refuse them.
// The header Host has the name by which the browser reached this server: a foreign name that resolves to this
// machine is not served. The header Origin names the page that sent the request. And each write needs the token, which
// is in the printed address only.
#include "edge.h"

#include <arpa/inet.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <climits>

#include "exit_code.h"

namespace VeltraServe {

namespace {

constexpr size_t TOKEN_BYTES = 16;
constexpr int DEFAULT_HTTP_PORT = 80;
constexpr char BEARER[] = "Bearer ";

std::string LowerCase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char letter) { return std::tolower(letter); });
    return text;
}

bool IsAddress(const std::string& text)
{
    in6_addr address;
    if (text.size() > 2 && text.front() == '[' && text.back() == ']') {
        return ::inet_pton(AF_INET6, text.substr(1, text.size() - 2).c_str(), &address) == 1;
    }
    return ::inet_pton(AF_INET, text.c_str(), &address) == 1;
}

std::string HostName()
{
    char name[HOST_NAME_MAX + 1] = "";
    return ::gethostname(name, sizeof(name) - 1) == 0 ? name : "";
}

// Takes the same time wherever the texts differ.
bool IsEqual(const std::string& left, const std::string& right)
{
    unsigned difference = left.size() == right.size() ? 0 : 1;
    for (size_t i = 0; i < std::min(left.size(), right.size()); ++i) {
        difference |= static_cast<unsigned char>(left[i]) ^ static_cast<unsigned char>(right[i]);
    }
    return difference == 0;
}

}  // namespace

Edge::Edge(const std::string& host, int port, const std::vector<std::string>& names, std::string token)
    : portText_(":" + std::to_string(port)), token_(std::move(token))
{
    const std::string ours = host.find(':') == std::string::npos ? host : "[" + host + "]";
    std::vector<std::string> reached = names;
    reached.push_back(ours);
    isEveryAddress_ = ours == "0.0.0.0" || ours == "[::]";
    if (isEveryAddress_ || ours == "localhost" || ours == "[::1]" || ours.rfind("127.", 0) == 0) {
        reached.insert(reached.end(), {"localhost", "127.0.0.1", "[::1]"});
    }
    if (isEveryAddress_) {
        reached.push_back(HostName());
    }
    for (const std::string& name : reached) {
        hosts_.push_back(LowerCase(name) + portText_);
        if (port == DEFAULT_HTTP_PORT) {
            // A browser leaves the port out of Host if it is the one of http.
            hosts_.push_back(LowerCase(name));
        }
    }
}

std::optional<Refusal> Edge::Check(const httplib::Request& request) const
{
    const std::string host = LowerCase(request.get_header_value("Host"));
    if (request.get_header_value_count("Host") != 1 || !IsOurs(host)) {
        return Refusal{421,
                       "This server has another name. Use the address that it printed, or start it with "
                       "--host NAME for each further name.\n"};
    }
    if (request.has_header("Origin") && LowerCase(request.get_header_value("Origin")) != "http://" + host) {
        return Refusal{403, "Requests from pages of other sites are refused.\n"};
    }
    if (request.has_header("Range")) {
        return Refusal{416, "Ranges are not served.\n"};
    }
    if (request.method == "GET" || request.method == "HEAD") {
        return std::nullopt;
    }
    if (request.method != "POST") {
        return Refusal{405, "Only GET, HEAD and POST are served.\n"};
    }
    return CheckWrite(request);
}

// A browser sends neither this content type nor the header Authorization to another site without asking it first.
std::optional<Refusal> Edge::CheckWrite(const httplib::Request& request) const
{
    if (IsReadOnly()) {
        return Refusal{403, "This server only shows. Start it without --read-only to change something.\n"};
    }
    if (!IsEqual(request.get_header_value("Authorization"), BEARER + token_)) {
        return Refusal{401, "The token is missing or wrong. Use the address that the server printed.\n"};
    }
    if (request.get_header_value("Content-Type") != "application/json" || request.has_header("Content-Encoding")) {
        return Refusal{415, "A command is sent as application/json.\n"};
    }
    if (!request.has_header("Content-Length") || request.has_header("Transfer-Encoding")) {
        return Refusal{411, "A command is sent with its Content-Length.\n"};
    }
    return std::nullopt;
}

std::string Edge::NewToken()
{
    unsigned char bytes[TOKEN_BYTES];
    if (::getrandom(bytes, sizeof(bytes), 0) != static_cast<ssize_t>(sizeof(bytes))) {
        throw VeltraTool::ToolError(VeltraTool::EXIT_NO, "the kernel gives no random bytes for the token",
                                    "use --read-only");
    }
    std::string token;
    for (const unsigned char byte : bytes) {
        token += "0123456789abcdef"[byte >> 4];
        token += "0123456789abcdef"[byte & 15];
    }
    return token;
}

bool Edge::IsOurs(const std::string& host) const
{
    if (std::find(hosts_.begin(), hosts_.end(), host) != hosts_.end()) {
        return true;
    }
    // A server on all addresses does not know them all: any address in numbers is accepted, but no further name:
    // a foreign site can make a name of its own resolve to this machine.
    if (!isEveryAddress_ || host.size() <= portText_.size()) {
        return false;
    }
    const size_t end = host.size() - portText_.size();
    return host.compare(end, std::string::npos, portText_) == 0 && IsAddress(host.substr(0, end));
}

}  // namespace VeltraServe
