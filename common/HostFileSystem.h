#pragma once

#include "common/HostFile.h"
#include "common/NativeHandle.h"

#include <cstddef>
#include <cstdint>

// The system calls behind HostFileReplacer, one body per system (linux/HostFile.cpp,
// windows/HostFile.cpp); the replace flow that uses them is written once in HostFile.cpp.
namespace vela::common::host_file {

// The failure of a path that holds a NUL, and of an empty one, as the system would classify it.
HostFileError InvalidName();
HostFileError EmptyName();
// The code of a write or commit on a file that is not open.
uint32_t NotOpenError();

// Where the replacement of `target` goes, and whether the target may be replaced: fails as
// opening an existing target for writing would. A symbolic link is resolved to the file it names
// (replacing the link would leave that file unchanged). `existing` tells whether there is a
// target; `mode` is then its permissions, kept for the replacement where the system has them.
HostFileError ProbeTarget(HostPath& target, bool& existing, uint32_t& mode);
// A name in the target's folder that no other writer of this or another process picks at the
// same moment (creation settles the rare collision).
HostPath TemporaryName(const HostPath& target);
// Creates `path` for writing, failing when it exists (`collided` is set then); with `keepMode`
// it gets the permissions `mode`.
HostFileError CreateNew(const HostPath& path, bool keepMode, uint32_t mode, UniqueHandle& handle,
                        bool& collided);
// Writes all `count` bytes at the file's position, which is `offset`; false with `error` set.
bool WriteAll(UniqueHandle& handle, const uint8_t* data, size_t count, uint64_t offset, uint32_t& error);
// Flushes the file to the disk and closes it; a delayed write error shows up here.
bool FlushAndClose(UniqueHandle& handle, uint32_t& error);
// Whether others may open the file for reading while CreateNew's handle is open. Windows: no,
// the file is created for this writer alone, so a reading waits for the close.
bool ReadableWhileWritten();
// Renames `from` over `to` (durably, where the system needs to be told).
bool RenameOver(const HostPath& from, const HostPath& to, uint32_t& error);
void Remove(const HostPath& path) noexcept;

} // namespace vela::common::host_file
