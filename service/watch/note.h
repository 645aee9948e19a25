// SPDX-License-Identifier: Apache-2.0
// Names and values of a request, a reply or a push, as watchers get them.
#ifndef VELTRA_SERVICE_NOTE_H
#define VELTRA_SERVICE_NOTE_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace TAVO::Veltra {

// Items in their order, in memory that the sender of a request does not control: longer texts, lists and notes are cut.
// Names are literals. Not thread-safe. Throws std::bad_alloc.
class Note {
public:
    static constexpr size_t MAX_TEXT_BYTES = 256;
    static constexpr size_t MAX_LIST_ITEMS = 16;
    static constexpr size_t MAX_ITEMS = 256;
    static constexpr size_t MAX_BYTES = size_t{32} << 10;  // of all items in memory

    enum class Kind : uint8_t { NUMBER, FLAG, TEXT, DOCUMENT, OBJECT, LIST, END };
    struct Item {
        Kind kind = Kind::END;
        const char* name = nullptr;  // null: an item of a list, or named by `key`
        int64_t number = 0;          // NUMBER, FLAG; LIST and OBJECT: how many there were, 0 if all are here
        std::string key;
        std::string text;  // TEXT; DOCUMENT: JSON on one line
    };

    void Number(const char* name, int64_t number) { Add({Kind::NUMBER, name, number, {}, {}}); }
    void Flag(const char* name, bool flag) { Add({Kind::FLAG, name, flag ? 1 : 0, {}, {}}); }
    void Text(const char* name, std::string_view text);
    // Text of this process's own that is JSON already.
    void Document(const char* name, std::string text) { Add({Kind::DOCUMENT, name, 0, {}, std::move(text)}); }
    void Texts(const char* name, const std::vector<std::string>& texts);
    void Pairs(const char* name, const std::map<std::string, std::string>& pairs);
    void Pairs(const char* name, const std::map<std::string, bool>& pairs);

    // Around the items of an object, and of a list of `count` objects, which have no name.
    void Begin(const char* name) { Add({Kind::OBJECT, name, 0, {}, {}}); }
    void BeginList(const char* name, size_t count) { Add({Kind::LIST, name, Surplus(count), {}, {}}); }
    void BeginItem(size_t index);
    void EndItem();
    void End() { Add({Kind::END, nullptr, 0, {}, {}}); }

    const std::vector<Item>& Items() const { return items_; }
    bool IsCut() const { return isCut_; }  // something is missing, or a text is shorter than it was
    size_t SizeBytes() const { return sizeBytes_; }
    bool IsEmpty() const { return items_.empty(); }

private:
    static int64_t Surplus(size_t count) { return count > MAX_LIST_ITEMS ? static_cast<int64_t>(count) : 0; }
    std::string Cut(std::string_view text);
    void Add(Item item);

    std::vector<Item> items_;
    size_t sizeBytes_ = 0;
    bool isCut_ = false;
    bool isSkipping_ = false;  // inside an object behind MAX_LIST_ITEMS
    bool isFull_ = false;
};

}  // namespace TAVO::Veltra

#endif
