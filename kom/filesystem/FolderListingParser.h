#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vela::kom {

// One entry of a printer folder listing, name still in UTF-8.
struct FolderListingEntry {
    std::string name;
    bool isFile = false;
    int32_t size = 0; // 0 for folders
};

// Parses the listing text of a folder content reply (the bytes after offset 259).
//
// The text is a run of entries, each ended by a comma: name ':' size ':' type letter. A file has
// a decimal size and the letter 'f', a folder an empty size and the letter 'd'. Text after the
// last comma is an unfinished entry and is ignored; an entry without a colon is skipped. An
// entry without a second colon takes its size up to the comma, and the byte after that comma is
// read as its type letter. The size text converts like a C integer conversion: leading blanks,
// an optional sign, then digits up to the first non-digit (saturating at the 32-bit limits);
// no digits gives 0, and the entry still counts as a file.
//
// Throws ReplyException (logged, with `source`) for a sized entry marked 'd' ("'Found directory
// instead of file name'") and for an unsized entry marked 'f' ("'Found file name instead of
// directory'"). Safe for any input.
std::vector<FolderListingEntry> ParseFolderListing(const uint8_t* text, size_t size,
                                                   const std::wstring& source);

// The signed 32-bit value of a size field as described above.
int32_t ParseListingSize(const char* text, size_t size);

} // namespace vela::kom
