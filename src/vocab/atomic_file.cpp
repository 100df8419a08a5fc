#include "vocab/atomic_file.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>

#ifdef _WIN32
#include <io.h>
#include <process.h>
#else
#include <unistd.h>
#endif

namespace qz {

namespace fs = std::filesystem;

namespace {

fs::path folder_of(const fs::path& target) {
  fs::path dir = target.parent_path();
  return dir.empty() ? fs::path(".") : dir;
}

#ifdef _WIN32
// No mkstemp: a name from the process and a counter, created exclusively.
int create_temp(const fs::path& target, fs::path& temp) {
  static unsigned counter = 0;
  for (int attempt = 0; attempt < 100; ++attempt) {
    fs::path name =
        folder_of(target) / (L"." + target.filename().wstring() + L".qzxl-" +
                             std::to_wstring(::_getpid()) + L"-" + std::to_wstring(++counter));
    int fd =
        ::_wopen(name.c_str(), _O_WRONLY | _O_CREAT | _O_EXCL | _O_BINARY, _S_IREAD | _S_IWRITE);
    if (fd >= 0 || errno != EEXIST) {
      if (fd >= 0) temp = name;
      return fd;
    }
  }
  return -1;
}
#else
int create_temp(const fs::path& target, fs::path& temp) {
  std::string pattern =
      (folder_of(target) / ("." + target.filename().string() + ".qzxl-XXXXXX")).string();
  int fd = ::mkstemp(pattern.data());
  if (fd >= 0) temp = pattern;
  return fd;
}
#endif

}  // namespace

AtomicFile::AtomicFile(fs::path target) : target_(std::move(target)) {
  fd_ = create_temp(target_, temp_);
  if (fd_ < 0) error_code_ = errno ? errno : EIO;
}

AtomicFile::~AtomicFile() {
  if (fd_ >= 0) ::close(fd_);
  if (!committed_ && !temp_.empty()) {
    std::error_code ec;
    fs::remove(temp_, ec);
  }
}

std::string AtomicFile::error() const {
  return error_code_ ? std::string(std::strerror(error_code_)) : std::string();
}

bool AtomicFile::failed() {
  if (error_code_ == 0) error_code_ = errno ? errno : EIO;
  return false;
}

bool AtomicFile::write(const void* data, size_t size) {
  if (!ok()) return false;
  const char* p = static_cast<const char*>(data);
  for (size_t done = 0; done < size;) {
#ifdef _WIN32
    int w = ::_write(fd_, p + done, static_cast<unsigned>(std::min<size_t>(size - done, 1u << 30)));
#else
    ssize_t w = ::write(fd_, p + done, size - done);
#endif
    if (w < 0) {
      if (errno == EINTR) continue;
      return failed();
    }
    done += static_cast<size_t>(w);
  }
#ifdef __linux__
  // A large file starts on its way to the disk while the rest is still being made, so that
  // the flush in commit() has only the last of it to wait for.
  written_ += size;
  if (written_ - queued_ >= kWriteback) {
    ::sync_file_range(fd_, static_cast<off64_t>(queued_), static_cast<off64_t>(written_ - queued_),
                      SYNC_FILE_RANGE_WRITE);
    queued_ = written_;
  }
#endif
  return true;
}

bool AtomicFile::write_at(const void* data, size_t size, uint64_t offset) {
  if (!ok()) return false;
#ifdef _WIN32
  // Seek there and back: the file's own position keeps appending after this.
  __int64 end = ::_lseeki64(fd_, 0, SEEK_CUR);
  if (end < 0 || ::_lseeki64(fd_, static_cast<__int64>(offset), SEEK_SET) < 0) return failed();
  bool written = write(data, size);
  if (::_lseeki64(fd_, end, SEEK_SET) < 0) return failed();
  return written;
#else
  const char* p = static_cast<const char*>(data);
  for (size_t done = 0; done < size;) {
    ssize_t w = ::pwrite(fd_, p + done, size - done, static_cast<off_t>(offset + done));
    if (w < 0) {
      if (errno == EINTR) continue;
      return failed();
    }
    done += static_cast<size_t>(w);
  }
  return true;
#endif
}

bool AtomicFile::commit() {
  if (!ok()) return false;
#ifdef _WIN32
  if (::_commit(fd_) != 0) return failed();
  if (::_close(fd_) != 0) {
    fd_ = -1;
    return failed();
  }
  fd_ = -1;
  std::error_code ec;
  fs::rename(temp_, target_, ec);
  if (ec) {
    error_code_ = ec.value() ? ec.value() : EIO;
    return false;
  }
  committed_ = true;
#else
  // Keep the permissions of the file being replaced; a new file gets the usual ones rather
  // than the owner-only ones of a temporary file.
  struct stat st;
  mode_t mode;
  if (::stat(target_.c_str(), &st) == 0) {
    mode = st.st_mode & 07777;
  } else {
    mode_t mask = ::umask(0);
    ::umask(mask);
    mode = 0666 & ~mask;
  }
  ::fchmod(fd_, mode);
  if (::fsync(fd_) != 0) return failed();
  if (::close(fd_) != 0) {
    fd_ = -1;
    return failed();
  }
  fd_ = -1;
  if (::rename(temp_.c_str(), target_.c_str()) != 0) return failed();
  committed_ = true;
  // The rename itself is durable only once the folder is flushed.
  int dir = ::open(folder_of(target_).c_str(), O_RDONLY | O_DIRECTORY);
  if (dir >= 0) {
    ::fsync(dir);
    ::close(dir);
  }
#endif
  return true;
}

std::string write_file_atomically(const fs::path& target, std::string_view bytes) {
  AtomicFile file(target);
  if (file.write(bytes) && file.commit()) return std::string();
  return file.error();
}

}  // namespace qz
