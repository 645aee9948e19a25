// SPDX-License-Identifier: Apache-2.0
// Accepts or refuses requests by their headers.
#ifndef VELTRA_SERVE_EDGE_H
#define VELTRA_SERVE_EDGE_H

#include <httplib.h>

#include <optional>
#include <string>
#include <vector>

namespace VeltraServe {

struct Refusal {
    int status;
    std::string text;  // what is wrong and what to do, for the peer
};

// Thread-safe: constant after its construction.
class Edge {
public:
    // `host` and `port` are where the server listens, `names` further names by which clients reach it. Without a token
    // nothing is written.
    Edge(const std::string& host, int port, const std::vector<std::string>& names, std::string token);

    // Empty: the request is accepted.
    std::optional<Refusal> Check(const httplib::Request& request) const;

    bool IsReadOnly() const { return token_.empty(); }

    // 128 random bits as text.
    static std::string NewToken();

private:
    bool IsOurs(const std::string& host) const;
    std::optional<Refusal> CheckWrite(const httplib::Request& request) const;

    std::vector<std::string> hosts_;  // values of the header Host, in lower case
    bool isEveryAddress_ = false;     // any address is ours, and the port is this one
    std::string portText_;            // ":6606"
    const std::string token_;
};

}  // namespace VeltraServe

#endif
