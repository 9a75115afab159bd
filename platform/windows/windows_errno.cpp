#include "windows_errno.h"

#include <cerrno>

#include "calls.h"

namespace platform {
namespace {

struct Meaning {
  DWORD system_code;
  int errno_value;
};

constexpr Meaning meanings[] = {
    {ERROR_FILE_NOT_FOUND, ENOENT},
    {ERROR_PATH_NOT_FOUND, ENOENT},
    {ERROR_TOO_MANY_OPEN_FILES, EMFILE},
    {ERROR_ACCESS_DENIED, EACCES},
    {ERROR_SHARING_VIOLATION, EACCES},
    {ERROR_LOCK_VIOLATION, EACCES},
    {ERROR_WRITE_PROTECT, EROFS},
    {ERROR_INVALID_HANDLE, EBADF},
    {ERROR_NOT_ENOUGH_MEMORY, ENOMEM},
    {ERROR_OUTOFMEMORY, ENOMEM},
    {ERROR_COMMITMENT_LIMIT, ENOMEM},
    {ERROR_INVALID_ADDRESS, ENOMEM},
    {ERROR_DISK_FULL, ENOSPC},
    {ERROR_HANDLE_DISK_FULL, ENOSPC},
    {ERROR_FILE_TOO_LARGE, EFBIG},
    {ERROR_NOT_SUPPORTED, ENOSYS},
    {ERROR_CRC, EIO},
    {ERROR_IO_DEVICE, EIO},
    {ERROR_READ_FAULT, EIO},
    {ERROR_WRITE_FAULT, EIO},
    {ERROR_GEN_FAILURE, EIO},
};

}  // namespace

int errno_of(std::uint32_t system_code) {
  for (const Meaning& meaning : meanings) {
    if (meaning.system_code == system_code)
      return meaning.errno_value;
  }
  return EINVAL;
}

}  // namespace platform
