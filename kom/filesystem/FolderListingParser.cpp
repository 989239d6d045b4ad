#include "kom/filesystem/FolderListingParser.h"

#include "common/LogAndThrow.h"
#include "kom/QRVException.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace vela::kom {

namespace {

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

const char* Find(const char* from, const char* end, char wanted) {
    const void* hit = std::memchr(from, wanted, static_cast<size_t>(end - from));
    return hit == nullptr ? end : static_cast<const char*>(hit);
}

} // namespace

int32_t ParseListingSize(const char* text, size_t size) {
    const char* p = text;
    const char* end = text + size;
    while (p < end && IsBlank(*p)) {
        ++p;
    }
    bool negative = false;
    if (p < end && (*p == '+' || *p == '-')) {
        negative = *p == '-';
        ++p;
    }
    // Accumulate as a magnitude and clamp, so that no digit count can overflow.
    const int64_t limit =
        negative ? -int64_t(std::numeric_limits<int32_t>::min()) : std::numeric_limits<int32_t>::max();
    int64_t value = 0;
    for (; p < end && *p >= '0' && *p <= '9'; ++p) {
        value = value * 10 + (*p - '0');
        if (value > limit) {
            value = limit;
        }
    }
    return static_cast<int32_t>(negative ? -value : value);
}

std::vector<FolderListingEntry> ParseFolderListing(const uint8_t* text, size_t size,
                                                   const std::wstring& source) {
    std::vector<FolderListingEntry> entries;
    if (text == nullptr || size == 0) {
        return entries;
    }
    const char* const begin = reinterpret_cast<const char*>(text);
    const char* const end = begin + size;
    // Every entry ends with a comma: one quick count sizes the list once, instead of growing it.
    entries.reserve(static_cast<size_t>(std::count(begin, end, ',')));

    for (const char* entry = begin; entry < end;) {
        const char* comma = Find(entry, end, ',');
        if (comma == end) {
            break; // no comma: an unfinished entry
        }
        const char* firstColon = Find(entry, comma, ':');
        if (firstColon != comma) {
            const char* sizeBegin = firstColon + 1;
            const char* secondColon = Find(sizeBegin, comma, ':');
            // Without a second colon the size runs to the comma and the letter is the byte after
            // the comma (none at the end of the text).
            const char* letterAt = secondColon + 1;
            const char letter = letterAt < end ? *letterAt : '\0';

            FolderListingEntry parsed;
            parsed.name.assign(entry, firstColon);
            if (secondColon != sizeBegin) {
                parsed.isFile = true;
                parsed.size = ParseListingSize(sizeBegin, static_cast<size_t>(secondColon - sizeBegin));
                if (letter == 'd') {
                    vela::common::LogAndThrow(
                        ReplyException(L"'Found directory instead of file name'", source));
                }
            } else if (letter == 'f') {
                vela::common::LogAndThrow(ReplyException(L"'Found file name instead of directory'", source));
            }
            entries.push_back(std::move(parsed));
        }
        entry = comma + 1;
    }
    return entries;
}

} // namespace vela::kom
