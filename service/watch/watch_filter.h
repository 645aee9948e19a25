// SPDX-License-Identifier: Apache-2.0
// Which records a watcher gets.
#ifndef VELTRA_SERVICE_WATCH_FILTER_H
#define VELTRA_SERVICE_WATCH_FILTER_H

#include <bitset>
#include <set>
#include <string>

#include "watch/watch_record.h"

namespace TAVO::Veltra {

struct WatchFilter {
    std::bitset<WatchRecord::KINDS> kinds = std::bitset<WatchRecord::KINDS>().set();
    std::set<pid_t> processes;         // empty: all; records about no process pass
    std::set<std::string> operations;  // of calls; empty: all

    // Throws ConfigError. An empty text asks for everything.
    static WatchFilter Parse(const std::string& text);
    bool Lets(const WatchRecord& record) const;
};

}  // namespace TAVO::Veltra

#endif
