// SPDX-License-Identifier: Apache-2.0
// A note is a flat list of items, in which OBJECT and LIST items open a level and END closes it. Each text is cut
// before it is copied, and items behind the limits are left out, so a hostile request costs a bounded amount of memory.
// An item that would exceed MAX_ITEMS or MAX_BYTES makes the note full: nothing is added after it, and the code that
// formats the note closes the levels that are still open.
#include "watch/note.h"

#include <algorithm>
#include <utility>

namespace TAVO::Veltra {

void Note::Text(const char* name, std::string_view text)
{
    if (!isSkipping_ && !isFull_) {  // else not even a copy
        Add({Kind::TEXT, name, 0, {}, Cut(text)});
    }
}

void Note::Texts(const char* name, const std::vector<std::string>& texts)
{
    BeginList(name, texts.size());
    for (size_t i = 0; i < std::min(texts.size(), MAX_LIST_ITEMS); ++i) {
        Text(nullptr, texts[i]);
    }
    End();
}

void Note::Pairs(const char* name, const std::map<std::string, std::string>& pairs)
{
    // With the count of all pairs, if not all are kept.
    Add({Kind::OBJECT, name, Surplus(pairs.size()), {}, {}});
    size_t count = 0;
    for (auto pair = pairs.begin(); pair != pairs.end() && count < MAX_LIST_ITEMS; ++pair, ++count) {
        Add({Kind::TEXT, nullptr, 0, Cut(pair->first), Cut(pair->second)});
    }
    End();
}

void Note::Pairs(const char* name, const std::map<std::string, bool>& pairs)
{
    Add({Kind::OBJECT, name, Surplus(pairs.size()), {}, {}});
    size_t count = 0;
    for (auto pair = pairs.begin(); pair != pairs.end() && count < MAX_LIST_ITEMS; ++pair, ++count) {
        Add({Kind::FLAG, nullptr, pair->second ? 1 : 0, Cut(pair->first), {}});
    }
    End();
}

void Note::BeginItem(size_t index)
{
    isSkipping_ = index >= MAX_LIST_ITEMS;
    Begin(nullptr);
}

void Note::EndItem()
{
    End();
    isSkipping_ = false;
}

std::string Note::Cut(std::string_view text)
{
    isCut_ = isCut_ || text.size() > MAX_TEXT_BYTES;
    return std::string(text.substr(0, MAX_TEXT_BYTES));
}

void Note::Add(Item item)
{
    if (isSkipping_ || isFull_) {
        return;
    }
    const size_t sizeBytes = sizeBytes_ + sizeof(Item) + item.key.size() + item.text.size();
    if (items_.size() >= MAX_ITEMS || sizeBytes > MAX_BYTES) {
        isFull_ = isCut_ = true;  // objects that are open are closed where this is formatted
        return;
    }
    // Most requests have fewer than eight arguments: one allocation.
    if (items_.empty()) {
        items_.reserve(8);
    }
    items_.push_back(std::move(item));
    sizeBytes_ = sizeBytes;
}

}  // namespace TAVO::Veltra
