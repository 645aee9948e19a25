// SPDX-License-Identifier: Apache-2.0
// Walks through the format once: plain text is copied, a conversion is parsed (privacy mark, flags, width, precision,
// length, type), rebuilt without the mark, and given to snprintf with its one argument. The arguments can only be taken
// in order and by their exact type, so after a conversion that is not understood no later one can be printed: the rest
// of the format is copied as it stands. A private argument is taken, never printed. Takes no lock and changes no
// locale.
#include "base/scrivo_format.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <string_view>
#include <type_traits>

namespace TAVO {

namespace {

enum class Length { NONE, CHAR, SHORT, LONG, LONG_LONG, MAX, SIZE, DIFFERENCE, LONG_DOUBLE };

constexpr struct {
    std::string_view text;
    Length length;
} LENGTHS[] = {
    {"hh", Length::CHAR}, {"h", Length::SHORT}, {"ll", Length::LONG_LONG}, {"l", Length::LONG},
    {"j", Length::MAX},   {"z", Length::SIZE},  {"t", Length::DIFFERENCE}, {"L", Length::LONG_DOUBLE},
};

constexpr std::string_view FLAGS = "-+ #0'";
constexpr std::string_view SIGNED = "di";
constexpr std::string_view UNSIGNED = "uoxX";
constexpr std::string_view FLOATING = "aAeEfFgG";

static_assert(std::is_same_v<intmax_t, long> && std::is_same_v<ptrdiff_t, long> &&
                  std::is_same_v<size_t, unsigned long>,
              "the lengths l, j, z and t name the same types");

// One conversion of a format, taken apart.
struct Conversion {
    static constexpr int ABSENT = INT_MIN;

    bool isPrivate = false;
    std::string_view flags;
    bool isLeft = false;  // by a negative width argument
    int width = ABSENT;
    int precision = ABSENT;
    std::string_view lengthText;
    Length length = Length::NONE;
    char type = '\0';
};

// Walks through a format and consumes the arguments that its conversions name.
class Formatter {
public:
    Formatter(TextBuffer& out, const char* format, va_list arguments) noexcept
        : out_(out), rest_(format), savedErrno_(errno)
    {
        va_copy(arguments_, arguments);
    }
    ~Formatter() { va_end(arguments_); }
    Formatter(const Formatter&) = delete;
    Formatter& operator=(const Formatter&) = delete;

    void Run() noexcept
    {
        while (!rest_.empty()) {
            const size_t percent = std::min(rest_.find('%'), rest_.size());
            out_.Append(rest_.substr(0, percent));
            rest_.remove_prefix(percent);
            if (rest_.empty()) {
                return;
            }
            const std::string_view whole = rest_;
            rest_.remove_prefix(1);
            Conversion conversion;
            if (!Parse(conversion) || !Put(conversion)) {
                out_.Append(whole);
                return;
            }
        }
    }

private:
    bool TakeChar(char wanted) noexcept
    {
        if (rest_.empty() || rest_.front() != wanted) {
            return false;
        }
        rest_.remove_prefix(1);
        return true;
    }

    bool Parse(Conversion& conversion) noexcept
    {
        if (TakeChar('{')) {
            const size_t end = rest_.find('}');
            if (end == std::string_view::npos) {
                return false;
            }
            // Any other mark hides the value: a mistyped one must not publish what was meant to be private.
            conversion.isPrivate = rest_.substr(0, end) != "public";
            rest_.remove_prefix(end + 1);
        }
        const size_t flags = std::min(rest_.find_first_not_of(FLAGS), rest_.size());
        conversion.flags = rest_.substr(0, flags);
        rest_.remove_prefix(flags);
        TakeNumber(conversion.width);
        if (conversion.width < 0 && conversion.width != Conversion::ABSENT) {
            conversion.isLeft = true;
            // As in printf: a negative width argument means left-aligned. TakeNumber has bounded it, so the negation is
            // safe.
            conversion.width = -conversion.width;
        }
        if (TakeChar('.') && !TakeNumber(conversion.precision)) {
            conversion.precision = 0;
        }
        for (const auto& entry : LENGTHS) {
            if (rest_.substr(0, entry.text.size()) == entry.text) {
                conversion.lengthText = entry.text;
                conversion.length = entry.length;
                rest_.remove_prefix(entry.text.size());
                break;
            }
        }
        if (rest_.empty()) {
            return false;
        }
        conversion.type = rest_.front();
        rest_.remove_prefix(1);
        return true;
    }

    // Digits or the argument of a `*`, bounded, since a number from data must not cost time; false without either.
    bool TakeNumber(int& number) noexcept
    {
        if (TakeChar('*')) {
            number = std::clamp(va_arg(arguments_, int), -MAX_NUMBER, MAX_NUMBER);
            return true;
        }
        const size_t digits = std::min(rest_.find_first_not_of("0123456789"), rest_.size());
        if (digits == 0) {
            return false;
        }
        number = 0;
        for (const char digit : rest_.substr(0, digits)) {
            number = std::min(number * 10 + (digit - '0'), MAX_NUMBER);
        }
        rest_.remove_prefix(digits);
        return true;
    }

    // Appends one conversion; false, and nothing appended, when it is none that is known.
    bool Put(const Conversion& conversion) noexcept
    {
        const char type = conversion.type;
        if (type == '%') {
            out_.Append("%");
            return true;
        }
        if (SIGNED.find(type) != std::string_view::npos) {
            return PutInteger<int, long, long long>(conversion);
        }
        if (UNSIGNED.find(type) != std::string_view::npos) {
            return PutInteger<unsigned, unsigned long, unsigned long long>(conversion);
        }
        if (FLOATING.find(type) != std::string_view::npos) {
            return conversion.length == Length::LONG_DOUBLE ? PutArgument<long double>(conversion)
                                                            : PutArgument<double>(conversion);
        }
        const bool isWide = conversion.length == Length::LONG;
        switch (type) {
            case 'c':
                return isWide ? PutArgument<wint_t>(conversion) : PutArgument<int>(conversion);
            case 's':
                return isWide ? PutArgument<const wchar_t*>(conversion) : PutArgument<const char*>(conversion);
            case 'p':
                return PutArgument<const void*>(conversion);
            case 'm':
                return PutValue(conversion, 0);
            // Never written to: a format from data must not become a write to memory. The argument is consumed.
            case 'n':
                va_arg(arguments_, void*);
                return true;
            default:
                return false;
        }
    }

    template <typename Plain, typename Long, typename LongLong>
    bool PutInteger(const Conversion& conversion) noexcept
    {
        switch (conversion.length) {
            case Length::LONG:
            case Length::MAX:
            case Length::SIZE:
            case Length::DIFFERENCE:
                return PutArgument<Long>(conversion);
            case Length::LONG_LONG:
            case Length::LONG_DOUBLE:  // the C library takes %Ld for %lld
                return PutArgument<LongLong>(conversion);
            default:
                return PutArgument<Plain>(conversion);
        }
    }

    template <typename V>
    bool PutArgument(const Conversion& conversion) noexcept
    {
        return PutValue(conversion, va_arg(arguments_, V));
    }

    template <typename V>
    bool PutValue(const Conversion& conversion, V value) noexcept
    {
        if (conversion.isPrivate) {
            out_.Append("<private>");
            return true;
        }
        char spec[64];
        char* end = spec;
        const auto add = [&end](std::string_view text) { end = std::copy(text.begin(), text.end(), end); };
        const auto addNumber = [&end, &spec](const char* format, int number) {
            end += std::snprintf(end, static_cast<size_t>(spec + sizeof(spec) - end), format, number);
        };
        add("%");
        add(conversion.flags.substr(0, FLAGS.size()));  // repeated flags must not overrun `spec`
        if (conversion.isLeft) {
            add("-");
        }
        if (conversion.width != Conversion::ABSENT) {
            addNumber("%d", conversion.width);
        }
        if (conversion.precision >= 0) {  // a negative argument counts as absent
            addNumber(".%d", conversion.precision);
        }
        add(conversion.lengthText);
        add({&conversion.type, 1});
        *end = '\0';
        errno = savedErrno_;  // for %m
        out_.AppendValue(spec, value);
        return true;
    }

    static constexpr int MAX_NUMBER = static_cast<int>(TextBuffer::MAX_TEXT_BYTES);

    TextBuffer& out_;
    std::string_view rest_;
    const int savedErrno_;
    va_list arguments_;
};

}  // namespace

void FormatLog(TextBuffer& out, const char* format, va_list arguments) noexcept
{
    Formatter(out, format == nullptr ? "(null)" : format, arguments).Run();
}

}  // namespace TAVO
