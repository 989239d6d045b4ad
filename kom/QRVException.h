#pragma once

#include "common/Exception.h"

namespace vela::kom {

// The protocol and device failures. The placement is uneven on purpose and callers catch by
// these bases: FileNotFound and NoPermission are device errors, FileAlreadyExists is a path
// error, NoFreeDiskSpace and PrinterBuzy hang directly under QRVException.
using vela::common::Exception;
VELA_DECLARE_EXCEPTION(QRVException, Exception);
VELA_DECLARE_EXCEPTION(PathException, QRVException);
VELA_DECLARE_EXCEPTION(PathNotFoundException, PathException);
VELA_DECLARE_EXCEPTION(FileAlreadyExistsException, PathException);
VELA_DECLARE_EXCEPTION(InvalidPathCharsException, PathException);
VELA_DECLARE_EXCEPTION(PathSeparatorException, PathException);
VELA_DECLARE_EXCEPTION(DeviceException, QRVException);
VELA_DECLARE_EXCEPTION(FileNotFoundException, DeviceException);
VELA_DECLARE_EXCEPTION(NoPermissionException, DeviceException);
VELA_DECLARE_EXCEPTION(DeviceNotFoundException, DeviceException);
VELA_DECLARE_EXCEPTION(NoCassettePresentException, DeviceException);
VELA_DECLARE_EXCEPTION(ReplyException, QRVException);
VELA_DECLARE_EXCEPTION(NoFreeDiskSpaceException, QRVException);
VELA_DECLARE_EXCEPTION(PrinterBuzyException, QRVException);

} // namespace vela::kom
