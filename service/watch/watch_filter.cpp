// SPDX-License-Identifier: Apache-2.0
// A filter is parsed once, when watching begins; a mistake in it refuses the request. Lets() runs for each record on
// the thread of the hub and compares only.
#include "watch/watch_filter.h"

#include "base/config_node.h"
#include "base/operation_names.h"

namespace TAVO::Veltra {

namespace {

constexpr size_t MAX_ENTRIES = 256;
constexpr size_t MAX_NAME_BYTES = 64;

}  // namespace

WatchFilter WatchFilter::Parse(const std::string& text)
{
    WatchFilter filter;
    if (text.empty()) {
        return filter;
    }
    const ConfigNode root = ConfigNode::Parse(text, "filter");
    root.ExpectKeys({"calls", "pushes", "device", "pid", "operation"});
    const auto read = [&root, &filter](const char* key, WatchRecord::Kind kind) {
        // Left out means wanted.
        filter.kinds.set(static_cast<size_t>(kind), !root.Has(key) || root.Member(key).Flag());
    };
    read("calls", WatchRecord::Kind::CALL);
    read("pushes", WatchRecord::Kind::PUSH);
    read("device", WatchRecord::Kind::DEVICE);
    if (root.Has("pid")) {
        for (const ConfigNode& item : root.Member("pid").Items(MAX_ENTRIES)) {
            filter.processes.insert(static_cast<pid_t>(item.Integer(1, INT32_MAX)));
        }
    }
    if (root.Has("operation")) {
        for (const ConfigNode& item : root.Member("operation").Items(MAX_ENTRIES)) {
            const std::string name = item.Text(MAX_NAME_BYTES);
            if (!FindOperation(name)) {
                item.Fail("there is no \"" + name + "\"");
            }
            filter.operations.insert(name);
        }
    }
    return filter;
}

bool WatchFilter::Lets(const WatchRecord& record) const
{
    if (!kinds.test(static_cast<size_t>(record.kind))) {
        return false;
    }
    // A record without a process (a device value, a simulation command) concerns all of them.
    if (!processes.empty() && record.process != 0 && processes.count(record.process) == 0) {
        return false;
    }
    return operations.empty() || record.kind != WatchRecord::Kind::CALL || operations.count(record.name) > 0;
}

}  // namespace TAVO::Veltra
