// SPDX-License-Identifier: Apache-2.0
// Counts repeated warnings in a small table, which is searched from end to end: there are few distinct warnings, and
// each call is followed by a system call anyway. The first occurrence is written at once. Repetitions within the window
// are counted, and their sum is written with the next line of the process after the window, or at exit. The table has
// no lock: a thread that finds it in use writes its line without counting, because to wait here would make each log
// call wait.
#include "base/scrivo_folder.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace TAVO {
namespace {

// FNV-1a. Lines of the same level and domain with equal hashes are taken for equal.
uint64_t Hash(const ScrivoLine& line) noexcept
{
    uint64_t hash = 14695981039346656037ULL;
    for (const char* const part : {line.tag, line.text}) {
        for (const char* at = part; *at != '\0'; ++at) {
            hash = (hash ^ static_cast<unsigned char>(*at)) * 1099511628211ULL;
        }
        hash = (hash ^ 0xffU) * 1099511628211ULL;
    }
    return hash;
}

template <size_t Size>
void Copy(char (&to)[Size], const char* from) noexcept
{
    const size_t length = strnlen(from, Size - 1);
    std::memcpy(to, from, length);
    to[length] = '\0';
}

}  // namespace

// Owns the table while it lives. It does not wait: the owner may be a thread that a fork has left behind.
class ScrivoFolder::Busy {
public:
    explicit Busy(ScrivoFolder& folder) noexcept : folder_(folder)
    {
        int none = 0;
        // The table belongs to the process that used it first: in a forked child the flag may be set for ever, and
        // counts are the parent's.
        const int self = ::getpid();
        isMine_ = (folder.process_.compare_exchange_strong(none, self) || none == self) &&
                  !folder.isBusy_.exchange(true, std::memory_order_acquire);
    }
    ~Busy()
    {
        if (isMine_) {
            folder_.isBusy_.store(false, std::memory_order_release);
        }
    }
    Busy(const Busy&) = delete;
    Busy& operator=(const Busy&) = delete;
    bool IsMine() const noexcept { return isMine_; }

private:
    ScrivoFolder& folder_;
    bool isMine_;
};

ScrivoFolder::Result ScrivoFolder::Fold(const ScrivoLine& line, int64_t now, Summary& summary) noexcept
{
    const Busy busy(*this);
    Result result;
    if (!busy.IsMine()) {
        return result;
    }
    const uint64_t hash = Hash(line);
    if (Slot* const known = Find(line, hash); known != nullptr) {
        return Repeat(*known, now, summary);
    }
    result.hasSummary = FreeThoseOver(now, summary);
    Slot* const place = std::find_if(slots_, slots_ + SLOTS, [](const Slot& slot) { return !slot.isUsed; });
    if (place == slots_ + SLOTS && result.hasSummary) {
        return result;  // Written, and not remembered.
    }
    Slot& slot = place != slots_ + SLOTS ? *place : Free(summary, result.hasSummary);
    slot.hash = hash;
    slot.since = now;
    slot.repeated = 0;
    slot.isUsed = true;
    slot.level = line.level;
    slot.domain = line.domain;
    Copy(slot.tag, line.tag);
    Copy(slot.text, line.text);
    return result;
}

ScrivoFolder::Result ScrivoFolder::Repeat(Slot& known, int64_t now, Summary& summary) noexcept
{
    Result result;
    const bool isOver = now - known.since >= WINDOW_NANOSECONDS;
    // Not repeated inside the window: this is a new first occurrence, and is written.
    if (!isOver || known.repeated > 0) {
        ++known.repeated;
        result = {true, isOver};
    }
    if (isOver) {
        if (result.hasSummary) {
            Fill(known, summary);
        }
        known.repeated = 0;
        known.since = now;
    }
    return result;
}

bool ScrivoFolder::FreeThoseOver(int64_t now, Summary& summary) noexcept
{
    bool hasSummary = false;
    for (Slot& slot : slots_) {
        if (!slot.isUsed || now - slot.since < WINDOW_NANOSECONDS || (slot.repeated > 0 && hasSummary)) {
            continue;
        }
        if (slot.repeated > 0) {
            Fill(slot, summary);
            hasSummary = true;
        }
        slot.isUsed = false;
    }
    return hasSummary;
}

bool ScrivoFolder::TakeAny(Summary& summary) noexcept
{
    const Busy busy(*this);
    if (!busy.IsMine()) {
        return false;
    }
    Slot* const repeated =
        std::find_if(slots_, slots_ + SLOTS, [](const Slot& slot) { return slot.isUsed && slot.repeated > 0; });
    if (repeated == slots_ + SLOTS) {
        return false;
    }
    Fill(*repeated, summary);
    repeated->isUsed = false;
    return true;
}

ScrivoFolder::Slot* ScrivoFolder::Find(const ScrivoLine& line, uint64_t hash) noexcept
{
    Slot* const found = std::find_if(slots_, slots_ + SLOTS, [&line, hash](const Slot& slot) {
        return slot.isUsed && slot.hash == hash && slot.level == line.level && slot.domain == line.domain;
    });
    return found != slots_ + SLOTS ? found : nullptr;
}

ScrivoFolder::Slot& ScrivoFolder::Free(Summary& summary, bool& hasSummary) noexcept
{
    Slot& oldest = *std::min_element(slots_, slots_ + SLOTS,
                                     [](const Slot& left, const Slot& right) { return left.since < right.since; });
    if (oldest.repeated > 0) {
        Fill(oldest, summary);
        hasSummary = true;
    }
    return oldest;
}

void ScrivoFolder::Fill(const Slot& slot, Summary& summary) noexcept
{
    summary.level = slot.level;
    summary.domain = slot.domain;
    Copy(summary.tag, slot.tag);
    std::snprintf(summary.text, sizeof(summary.text), "%s (repeated %u times)", slot.text, slot.repeated);
}

}  // namespace TAVO
