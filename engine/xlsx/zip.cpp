#include "engine/xlsx/zip.hpp"

#include <fcntl.h>
#include <libdeflate.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <exception>
#include <fstream>
#include <mutex>
#include <system_error>
#include <thread>
#include <unordered_set>

#include "qzxl/error.hpp"

namespace qz::engine::xlsx {

namespace fs = std::filesystem;

namespace {

constexpr uint32_t kLocalSig = 0x04034b50;
constexpr uint32_t kCentralSig = 0x02014b50;
constexpr uint32_t kEndSig = 0x06054b50;
constexpr uint32_t kEnd64Sig = 0x06064b50;
constexpr uint32_t kEnd64LocatorSig = 0x07064b50;
constexpr size_t kLocalSize = 30;
constexpr size_t kCentralSize = 46;
constexpr size_t kEndSize = 22;

constexpr uint16_t kFlagEncrypted = 0x0001;
constexpr uint16_t kFlagDescriptor = 0x0008;
constexpr uint16_t kFlagStrongEncryption = 0x0040;
constexpr uint16_t kFlagUtf8 = 0x0800;

uint16_t get16(const char* p) {
  auto u = reinterpret_cast<const uint8_t*>(p);
  return static_cast<uint16_t>(u[0] | (u[1] << 8));
}
uint32_t get32(const char* p) {
  auto u = reinterpret_cast<const uint8_t*>(p);
  return uint32_t{u[0]} | (uint32_t{u[1]} << 8) | (uint32_t{u[2]} << 16) | (uint32_t{u[3]} << 24);
}
uint64_t get64(const char* p) {
  return uint64_t{get32(p)} | (uint64_t{get32(p + 4)} << 32);
}

void put16(std::string& s, uint16_t v) {
  s.push_back(static_cast<char>(v & 0xff));
  s.push_back(static_cast<char>(v >> 8));
}
void put32(std::string& s, uint32_t v) {
  put16(s, static_cast<uint16_t>(v & 0xffff));
  put16(s, static_cast<uint16_t>(v >> 16));
}
void put64(std::string& s, uint64_t v) {
  put32(s, static_cast<uint32_t>(v));
  put32(s, static_cast<uint32_t>(v >> 32));
}

char fold(char c) {
  return (c >= 'A' && c <= 'Z') ? static_cast<char>(c + ('a' - 'A')) : c;
}

// Part names compare without regard to ASCII case, so two entries that differ only in case
// name the same part.
int compare_folded(std::string_view a, std::string_view b) {
  size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    char x = fold(a[i]), y = fold(b[i]);
    if (x != y) return static_cast<unsigned char>(x) < static_cast<unsigned char>(y) ? -1 : 1;
  }
  return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
}

// Names appear in one-line messages; hostile ones may hold control characters or be huge.
std::string printable(std::string_view name) {
  std::string out;
  for (char c : name.substr(0, 120)) {
    auto u = static_cast<unsigned char>(c);
    if (u < 0x20 || u == 0x7f) {
      static const char hex[] = "0123456789abcdef";
      out += "\\x";
      out += hex[u >> 4];
      out += hex[u & 15];
    } else {
      out += c;
    }
  }
  if (name.size() > 120) out += "...";
  return out;
}

// Why an entry name cannot be a part of a package we read, or empty when it can. A name is
// later joined to paths by whoever extracts the package, so anything that could leave the
// package's own tree is refused rather than cleaned up.
std::string bad_name_reason(std::string_view name) {
  if (name.empty()) return "an entry has an empty name";
  std::string shown = "entry '" + printable(name) + "'";
  for (char c : name) {
    auto u = static_cast<unsigned char>(c);
    if (u < 0x20 || u == 0x7f) return shown + " has control characters in its name";
  }
  if (name.find('\\') != std::string_view::npos)
    return shown + " uses backslashes in its name, which a package may not";
  if (name.front() == '/') return shown + " has an absolute name";
  if (name.size() >= 2 && name[1] == ':') return shown + " names a drive";
  size_t start = 0;
  while (start <= name.size()) {
    size_t end = name.find('/', start);
    if (end == std::string_view::npos) end = name.size();
    std::string_view seg = name.substr(start, end - start);
    if (seg == "..") return shown + " climbs out of the package ('..')";
    if (seg == ".") return shown + " has a '.' segment in its name";
    if (seg.empty() && end != name.size()) return shown + " has an empty segment in its name";
    start = end + 1;
  }
  return {};
}

std::string size_text(uint64_t n) {
  if (n >= (uint64_t{1} << 30)) return std::to_string(n >> 30) + " GiB";
  if (n >= (uint64_t{1} << 20)) return std::to_string(n >> 20) + " MiB";
  if (n >= (uint64_t{1} << 10)) return std::to_string(n >> 10) + " KiB";
  return std::to_string(n) + " bytes";
}

}  // namespace

bool looks_like_compound_file(std::string_view bytes) {
  static constexpr char sig[] = "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1";
  return bytes.size() >= 8 && bytes.substr(0, 8) == std::string_view(sig, 8);
}

// ---------------------------------------------------------------------------------------
// Reading

void ZipReader::fail(const std::string& problem) const {
  throw Error(err::host_failure, "cannot open '" + display_name_ + "': " + problem);
}

// Where a package's bytes come from: an open file (read on demand) or memory.
struct ZipReader::Source {
  int fd = -1;
  std::string bytes;
  uint64_t size = 0;
  ~Source() {
    if (fd >= 0) ::close(fd);
  }
};

void ZipReader::read_at(uint64_t offset, size_t length, char* out) const {
  const Source& src = *source_;
  if (offset > src.size || length > src.size - offset) fail("the zip package is truncated");
  if (src.fd < 0) {
    std::memcpy(out, src.bytes.data() + offset, length);
    return;
  }
  size_t done = 0;
  while (done < length) {
    ssize_t r = ::pread(src.fd, out + done, length - done, static_cast<off_t>(offset + done));
    if (r < 0 && errno == EINTR) continue;
    if (r <= 0)
      fail(r < 0 ? std::string(std::strerror(errno)) : "the file shrank while being read");
    done += static_cast<size_t>(r);
  }
}

ZipReader ZipReader::open(const fs::path& path, const ZipLimits& limits) {
  std::error_code ec;
  if (!fs::exists(path, ec))
    throw Error(err::file_not_found, "cannot open '" + path.string() + "': no such file");
  if (fs::is_directory(path, ec))
    throw Error(err::host_failure, "cannot open '" + path.string() + "': it is a folder");
  auto src = std::make_shared<Source>();
  src->fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (src->fd < 0)
    throw Error(err::host_failure, "cannot open '" + path.string() + "': " + std::strerror(errno));
  struct stat st;
  if (::fstat(src->fd, &st) != 0)
    throw Error(err::host_failure, "cannot open '" + path.string() + "': " + std::strerror(errno));
  src->size = static_cast<uint64_t>(st.st_size);
  ZipReader z;
  z.display_name_ = path.string();
  z.source_ = std::move(src);
  z.limits_ = limits;
  z.index();
  return z;
}

ZipReader ZipReader::from_bytes(std::string bytes, std::string display_name,
                                const ZipLimits& limits) {
  auto src = std::make_shared<Source>();
  src->size = bytes.size();
  src->bytes = std::move(bytes);
  ZipReader z;
  z.display_name_ = std::move(display_name);
  z.source_ = std::move(src);
  z.limits_ = limits;
  z.index();
  return z;
}

void ZipReader::index() {
  const uint64_t n = source_->size;
  auto fetch = [&](uint64_t offset, uint64_t length) {
    std::string out(static_cast<size_t>(length), '\0');
    read_at(offset, static_cast<size_t>(length), out.data());
    return out;
  };
  if (n == 0) fail("the file is empty");
  std::string start = fetch(0, std::min<uint64_t>(n, 8));
  if (looks_like_compound_file(start))
    fail("it is an encrypted or legacy binary workbook (an OLE2 compound file, not a zip package)");
  if (n < kEndSize) fail("it is not a zip package (too short)");

  // The end record is the last thing in the file but may be followed by a comment of up to
  // 64 KiB; take the last signature whose comment length reaches exactly to the end, or
  // failing that the last signature at all (some writers miscount the comment).
  uint64_t lowest = n > kEndSize + 0xffff ? n - kEndSize - 0xffff : 0;
  std::string tail = fetch(lowest, n - lowest);
  auto at_tail = [&](uint64_t abs) { return tail.data() + (abs - lowest); };
  uint64_t end_pos = UINT64_MAX, loose_end = UINT64_MAX;
  for (uint64_t p = n - kEndSize + 1; p-- > lowest;) {
    if (get32(at_tail(p)) != kEndSig) continue;
    if (loose_end == UINT64_MAX) loose_end = p;
    if (p + kEndSize + get16(at_tail(p) + 20) == n) {
      end_pos = p;
      break;
    }
  }
  if (end_pos == UINT64_MAX) end_pos = loose_end;
  if (end_pos == UINT64_MAX) {
    if (start.compare(0, 2, "PK") == 0)
      fail("the zip package is truncated or damaged (no end of central directory)");
    fail("it is not a zip package");
  }

  const char* e = at_tail(end_pos);
  uint64_t disk = get16(e + 4), cd_disk = get16(e + 6);
  uint64_t count = get16(e + 10);
  uint64_t cd_size = get32(e + 12), cd_offset = get32(e + 16);
  if (count == 0xffff || cd_size == 0xffffffff || cd_offset == 0xffffffff) {
    // zip64: a locator just before the end record points at the larger end record.
    if (end_pos < 20 || get32(fetch(end_pos - 20, 4).data()) != kEnd64LocatorSig)
      fail("the zip package is damaged (zip64 sizes without a zip64 locator)");
    uint64_t rec = get64(fetch(end_pos - 20 + 8, 8).data());
    if (rec > end_pos - 20 || end_pos - 20 - rec < 56)
      fail("the zip package is damaged (bad zip64 end record)");
    std::string r = fetch(rec, 56);
    if (get32(r.data()) != kEnd64Sig) fail("the zip package is damaged (bad zip64 end record)");
    disk = get32(r.data() + 16);
    cd_disk = get32(r.data() + 20);
    count = get64(r.data() + 32);
    cd_size = get64(r.data() + 40);
    cd_offset = get64(r.data() + 48);
    end_pos = rec;  // the central directory must end before the zip64 record
  }
  if (disk != 0 || cd_disk != 0) fail("it is a multi-volume zip archive, which is not supported");
  if (cd_offset > end_pos || cd_size > end_pos - cd_offset)
    fail("the zip package is truncated or damaged (central directory out of bounds)");
  if (count > limits_.max_entries)
    fail("it has " + std::to_string(count) + " entries, more than the limit of " +
         std::to_string(limits_.max_entries));

  entries_.reserve(static_cast<size_t>(count));
  std::string cd = fetch(cd_offset, cd_size);
  uint64_t p = 0;
  const uint64_t cd_end = cd_size;
  uint64_t total = 0;
  for (uint64_t i = 0; i < count; ++i) {
    if (p + kCentralSize > cd_end || get32(cd.data() + p) != kCentralSig)
      fail("the zip package is damaged (bad central directory record " + std::to_string(i + 1) +
           ")");
    const char* c = cd.data() + p;
    ZipEntry en;
    en.version_made_by = get16(c + 4);
    en.flags = get16(c + 8);
    en.method = get16(c + 10);
    en.mod_time = get16(c + 12);
    en.mod_date = get16(c + 14);
    en.crc32 = get32(c + 16);
    en.compressed_size = get32(c + 20);
    en.size = get32(c + 24);
    uint64_t name_len = get16(c + 28), extra_len = get16(c + 30), comment_len = get16(c + 32);
    uint64_t start_disk = get16(c + 34);
    en.internal_attributes = get16(c + 36);
    en.external_attributes = get32(c + 38);
    en.header_offset = get32(c + 42);
    if (p + kCentralSize + name_len + extra_len + comment_len > cd_end)
      fail("the zip package is damaged (central directory record " + std::to_string(i + 1) +
           " overruns the directory)");
    en.name.assign(c + kCentralSize, name_len);

    // zip64 extra field: the 64-bit values of those fields that hold all ones, in order.
    const char* x = c + kCentralSize + name_len;
    const char* x_end = x + extra_len;
    while (x + 4 <= x_end) {
      uint16_t id = get16(x), len = get16(x + 2);
      const char* d = x + 4;
      if (d + len > x_end) break;
      if (id == 0x0001) {
        const char* q = d;
        const char* q_end = d + len;
        auto take = [&](uint64_t& field) {
          if (q + 8 > q_end) fail("the zip package is damaged (short zip64 field)");
          field = get64(q);
          q += 8;
        };
        if (en.size == 0xffffffff) take(en.size);
        if (en.compressed_size == 0xffffffff) take(en.compressed_size);
        if (en.header_offset == 0xffffffff) take(en.header_offset);
        if (start_disk == 0xffff && q + 4 <= q_end) start_disk = get32(q);
      }
      x = d + len;
    }
    p += kCentralSize + name_len + extra_len + comment_len;

    if (std::string why = bad_name_reason(en.name); !why.empty()) fail(why);
    std::string shown = "entry '" + printable(en.name) + "'";
    if (start_disk != 0) fail(shown + " lies on another volume");
    if (en.flags & (kFlagEncrypted | kFlagStrongEncryption)) fail(shown + " is encrypted");
    if (en.method != 0 && en.method != 8)
      fail(shown + " uses compression method " + std::to_string(en.method) +
           ", which is not supported");
    if (en.method == 0 && en.compressed_size != en.size)
      fail(shown + " is damaged (stored with two different sizes)");
    if (en.size > limits_.max_entry_size)
      fail(shown + " inflates to " + size_text(en.size) + ", more than the limit of " +
           size_text(limits_.max_entry_size));
    if (en.size > limits_.ratio_floor &&
        en.size / std::max<uint64_t>(en.compressed_size, 1) > limits_.max_ratio)
      fail(shown + " inflates " +
           std::to_string(en.size / std::max<uint64_t>(en.compressed_size, 1)) +
           " times over, more than a real workbook part does (a zip bomb?)");
    total += en.size;
    if (total > limits_.max_total_size)
      fail("its entries inflate to more than the limit of " + size_text(limits_.max_total_size));

    // The local header repeats the name and may carry a different extra field; the data
    // follows both.
    uint64_t h = en.header_offset;
    if (h > cd_offset || cd_offset - h < kLocalSize) fail(shown + " is damaged (bad local header)");
    std::string local = fetch(h, kLocalSize);
    const char* l = local.data();
    if (get32(l) != kLocalSig) fail(shown + " is damaged (bad local header)");
    uint64_t lname = get16(l + 26), lextra = get16(l + 28);
    en.data_offset = h + kLocalSize + lname + lextra;
    if (en.data_offset > cd_offset || en.compressed_size > cd_offset - en.data_offset)
      fail(shown + " is truncated (its data runs past the end of the entries)");
    std::string local_name = fetch(h + kLocalSize, lname);
    if (local_name != en.name)
      fail(shown + " is damaged (its local header names '" + printable(local_name) + "')");
    entries_.push_back(std::move(en));
  }

  by_name_.resize(entries_.size());
  for (uint32_t i = 0; i < by_name_.size(); ++i) by_name_[i] = i;
  std::sort(by_name_.begin(), by_name_.end(), [&](uint32_t a, uint32_t b2) {
    return compare_folded(entries_[a].name, entries_[b2].name) < 0;
  });
  for (size_t i = 1; i < by_name_.size(); ++i) {
    const auto& a = entries_[by_name_[i - 1]];
    const auto& c = entries_[by_name_[i]];
    if (compare_folded(a.name, c.name) == 0)
      fail(a.name == c.name ? "it has two entries named '" + printable(a.name) + "'"
                            : "it has two entries for one part ('" + printable(a.name) + "' and '" +
                                  printable(c.name) + "')");
  }

  // Entries sharing bytes let a small file inflate to many times its size (overlapping-entry
  // bombs); in a well-formed package each entry's data ends before the next header begins.
  std::vector<const ZipEntry*> by_offset;
  by_offset.reserve(entries_.size());
  for (const auto& en : entries_) by_offset.push_back(&en);
  std::sort(by_offset.begin(), by_offset.end(), [](const ZipEntry* a, const ZipEntry* c) {
    return a->header_offset < c->header_offset;
  });
  for (size_t i = 1; i < by_offset.size(); ++i) {
    const ZipEntry& prev = *by_offset[i - 1];
    if (by_offset[i]->header_offset < prev.data_offset + prev.compressed_size)
      fail("entries '" + printable(prev.name) + "' and '" + printable(by_offset[i]->name) +
           "' overlap (a zip bomb or a damaged package)");
  }
}

const ZipEntry* ZipReader::find(std::string_view name) const {
  auto it = std::lower_bound(
      by_name_.begin(), by_name_.end(), name,
      [&](uint32_t i, std::string_view n) { return compare_folded(entries_[i].name, n) < 0; });
  if (it == by_name_.end() || compare_folded(entries_[*it].name, name) != 0) return nullptr;
  return &entries_[*it];
}

std::string ZipReader::raw(const ZipEntry& entry) const {
  std::string out(static_cast<size_t>(entry.compressed_size), '\0');
  read_at(entry.data_offset, out.size(), out.data());
  return out;
}

void ZipReader::copy_raw(const ZipEntry& entry,
                         const std::function<void(const char*, size_t)>& sink) const {
  constexpr size_t kPiece = 1 << 20;
  std::string piece(static_cast<size_t>(std::min<uint64_t>(entry.compressed_size, kPiece)), '\0');
  for (uint64_t done = 0; done < entry.compressed_size;) {
    size_t n = static_cast<size_t>(std::min<uint64_t>(entry.compressed_size - done, kPiece));
    read_at(entry.data_offset + done, n, piece.data());
    sink(piece.data(), n);
    done += n;
  }
}

void ZipReader::inflate_into(const ZipEntry& entry, char* out) const {
  std::string shown = "entry '" + printable(entry.name) + "'";
  if (entry.method == 0) {
    read_at(entry.data_offset, static_cast<size_t>(entry.size), out);
  } else {
    std::string packed = raw(entry);
    // One decompressor per thread: allocating one costs more than inflating a small part.
    struct Holder {
      libdeflate_decompressor* d = libdeflate_alloc_decompressor();
      ~Holder() { libdeflate_free_decompressor(d); }
    };
    thread_local Holder holder;
    if (!holder.d) throw Error(err::out_of_memory, "out of memory");
    size_t in_used = 0, out_len = 0;
    // The output buffer is exactly the stated size, so a stream that inflates further than
    // the central directory said stops there instead of growing.
    auto r = libdeflate_deflate_decompress_ex(holder.d, packed.data(), packed.size(), out,
                                              static_cast<size_t>(entry.size), &in_used, &out_len);
    if (r == LIBDEFLATE_INSUFFICIENT_SPACE)
      fail(shown + " is damaged (it inflates past its stated size)");
    if (r != LIBDEFLATE_SUCCESS) fail(shown + " is damaged (invalid compressed data)");
    if (out_len != entry.size) fail(shown + " is damaged (it inflates short of its stated size)");
  }
  uint32_t crc = libdeflate_crc32(0, out, static_cast<size_t>(entry.size));
  if (crc != entry.crc32) fail(shown + " is damaged (CRC mismatch)");
}

std::string ZipReader::read(const ZipEntry& entry) const {
  std::string out(static_cast<size_t>(entry.size), '\0');
  inflate_into(entry, out.data());
  return out;
}

PartBuffer ZipReader::read_buffer(const ZipEntry& entry) const {
  PartBuffer b(static_cast<size_t>(entry.size));
  inflate_into(entry, b.data());
  return b;
}

// ---------------------------------------------------------------------------------------
// Part buffers

namespace {
constexpr size_t kMapAbove = 1 << 20;
size_t page_size() {
  static const size_t p = static_cast<size_t>(::sysconf(_SC_PAGESIZE));
  return p;
}
}  // namespace

PartBuffer::PartBuffer(size_t size) : size_(size) {
  if (size < kMapAbove) {
    small_.resize(size);
    data_ = small_.data();
    return;
  }
  size_t ps = page_size();
  mapped_ = (size + ps - 1) / ps * ps;
  // Every page is written at once by the inflater: populating them in one go saves a fault
  // per page.
  void* p = ::mmap(nullptr, mapped_, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
  if (p == MAP_FAILED) throw Error(err::out_of_memory, "out of memory");
  data_ = static_cast<char*>(p);
}

PartBuffer::~PartBuffer() {
  if (mapped_) ::munmap(data_, mapped_);
}

PartBuffer::PartBuffer(PartBuffer&& o) noexcept {
  *this = std::move(o);
}

PartBuffer& PartBuffer::operator=(PartBuffer&& o) noexcept {
  if (this == &o) return *this;
  if (mapped_) ::munmap(data_, mapped_);
  small_ = std::move(o.small_);
  mapped_ = o.mapped_;
  size_ = o.size_;
  released_ = o.released_;
  data_ = mapped_ ? o.data_ : small_.data();
  o.data_ = nullptr;
  o.size_ = o.mapped_ = o.released_ = 0;
  return *this;
}

void PartBuffer::release(size_t from, size_t to) {
  if (!mapped_) return;
  size_t ps = page_size();
  size_t begin = std::max((from + ps - 1) / ps * ps, released_);
  size_t end = std::min(to, size_) / ps * ps;
  if (end <= begin) return;
  ::madvise(data_ + begin, end - begin, MADV_DONTNEED);
  released_ = end;
}

// ---------------------------------------------------------------------------------------
// Writing

struct ZipWriter::Central {
  std::string name;
  uint16_t version_made_by = 0x031e;  // Unix, 3.0
  uint16_t flags = 0;
  uint16_t method = 8;
  uint16_t mod_time = 0;
  uint16_t mod_date = 0x21;  // 1980-01-01, the date a package with no history carries
  uint32_t crc32 = 0;
  uint64_t compressed_size = 0;
  uint64_t size = 0;
  uint16_t internal_attributes = 0;
  uint32_t external_attributes = 0;
  uint64_t offset = 0;
};

void EntrySink::flush() {
  if (text.empty()) return;
  flushed_ += text.size();
  consume_(text);
  text.clear();
}

void EntrySink::write(std::string_view piece) {
  flush();
  flushed_ += piece.size();
  consume_(piece);
}

int stream_level(int level) {
  // Streamed parts are the large worksheets. On their text zlib's lazy-matching levels (4 and
  // up) take four to six times as long as its greedy ones for some fifteen percent less
  // output, which would make the deflater most of a save's time; so the default level maps to
  // a greedy one and only levels asked for above it reach the lazy ones.
  return std::clamp(level - 4, 1, 9);
}

namespace {

// A streamed entry is deflated in segments of a fixed size, each as a continuation of the
// one before: the 32 KiB preceding it are its dictionary, and it ends on a byte boundary
// (a sync flush) so that the next one's output simply follows; the last one ends the stream.
// Segments are cut by position only, so the bytes written depend on the content alone, not
// on how it was handed over or on which thread deflated which segment.
constexpr size_t kSegment = size_t{1} << 20;
constexpr size_t kWindow = size_t{1} << 15;
// How many segments may wait for a deflater before the producer deflates one itself: enough
// that the second thread finds one waiting while the producer makes the next, few enough to
// keep what a save holds small.
constexpr size_t kBacklog = 2;

class SegmentDeflater {
 public:
  explicit SegmentDeflater(int level) {
    ready_ = deflateInit2(&z_, level, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) == Z_OK;
  }
  ~SegmentDeflater() {
    if (ready_) deflateEnd(&z_);
  }
  SegmentDeflater(const SegmentDeflater&) = delete;
  SegmentDeflater& operator=(const SegmentDeflater&) = delete;

  // Deflates `in` into `out`. Returns false when zlib reports a fault or memory runs out;
  // never throws, so that it can run on any thread.
  bool run(std::string_view dict, std::string& in, std::string& out, bool last) noexcept {
    try {
      if (!deflate_segment(dict, in, last)) return false;
      out.assign(scratch_.data(), made_);
      return true;
    } catch (...) {
      return false;
    }
  }

 private:
  // Deflates into `scratch_`, which is reused, so that a segment keeps only its compressed
  // bytes while it waits to be written.
  bool deflate_segment(std::string_view dict, std::string& in, bool last) {
    if (!ready_ || deflateReset(&z_) != Z_OK) return false;
    if (!dict.empty() && deflateSetDictionary(&z_, reinterpret_cast<const Bytef*>(dict.data()),
                                              static_cast<uInt>(dict.size())) != Z_OK)
      return false;
    z_.next_in = reinterpret_cast<Bytef*>(in.data());
    z_.avail_in = static_cast<uInt>(in.size());
    std::string& out = scratch_;
    if (out.size() < deflateBound(&z_, in.size()) + 64)
      out.resize(deflateBound(&z_, in.size()) + 64);
    size_t made = 0;
    const int mode = last ? Z_FINISH : Z_SYNC_FLUSH;
    for (;;) {
      if (made == out.size()) out.resize(out.size() * 2);
      z_.next_out = reinterpret_cast<Bytef*>(out.data() + made);
      z_.avail_out = static_cast<uInt>(out.size() - made);
      int r = deflate(&z_, mode);
      made = out.size() - z_.avail_out;
      if (r == Z_STREAM_ERROR) return false;
      if (last ? r == Z_STREAM_END : (z_.avail_in == 0 && z_.avail_out != 0)) break;
    }
    made_ = made;
    return true;
  }

  z_stream z_{};
  bool ready_ = false;
  std::string scratch_;
  size_t made_ = 0;
};

}  // namespace

// What goes into the file for a streamed entry, in order: its local header, its segments and
// its end (the sizes and CRC patched into the header).
struct ZipWriter::Segment {
  enum class Kind : uint8_t { Header, Data, End } kind = Kind::Data;
  enum class State : uint8_t { Queued, Taken, Done } state = State::Queued;
  bool last = false;  // Data: the segment that ends the stream
  size_t entry = 0;   // Header, End: the entry's place in the central directory
  uint64_t size = 0;  // Data: the length of `in`; End: the entry's inflated size
  uint32_t crc = 0;   // Data: the CRC of `in`, worked out by the thread that deflates it
  std::string in;
  std::string dict;  // the kWindow bytes before `in`
  std::string out;
};

// The streamed entries' segments not yet written, in file order, and the second thread that
// deflates them. It lives as long as the writer, so that one entry's last segments are still
// being deflated while the next entry's text is produced. Only the writer's own thread writes
// to the file.
struct ZipWriter::Pipeline {
  explicit Pipeline(int level) : level(level), own(level) {}
  ~Pipeline() { stop(); }
  Pipeline(const Pipeline&) = delete;
  Pipeline& operator=(const Pipeline&) = delete;

  // A new item.
  static std::unique_ptr<Segment> fresh(Segment::Kind kind) {
    auto s = std::make_unique<Segment>();
    s->kind = kind;
    s->state = kind == Segment::Kind::Data ? Segment::State::Queued : Segment::State::Done;
    return s;
  }
  void push(std::unique_ptr<Segment> s) {
    {
      std::lock_guard lock(m);
      if (s->state == Segment::State::Queued) ++queued;
      items.push_back(std::move(s));
    }
    cv.notify_one();
  }
  // Starts the second thread unless it runs; false when none can be had (or only one core
  // would run both).
  bool start() {
    if (!worker.joinable() && !tried) {
      tried = true;
      if (std::thread::hardware_concurrency() == 1) return false;
      try {
        worker = std::thread([this] { work(); });
      } catch (const std::system_error&) {
        // No second thread: the writer's thread deflates everything.
      }
    }
    return worker.joinable();
  }
  void stop() {
    {
      std::lock_guard lock(m);
      closing = true;
    }
    cv.notify_all();
    if (worker.joinable()) worker.join();
  }
  // The first segment waiting for a deflater, now taken; null when none waits. Under `m`.
  Segment* take() {
    if (queued == 0) return nullptr;
    for (auto& s : items)
      if (s->state == Segment::State::Queued) {
        s->state = Segment::State::Taken;
        --queued;
        return s.get();
      }
    return nullptr;
  }
  // Deflates a taken segment; takes `lock` off while it runs. Its input is not needed after,
  // and goes at once: a save holds only the segments in flight.
  void deflate(SegmentDeflater& d, Segment& s, std::unique_lock<std::mutex>& lock) {
    lock.unlock();
    const bool ok = d.run(s.dict, s.in, s.out, s.last);
    s.size = s.in.size();
    s.crc = libdeflate_crc32(0, s.in.data(), s.in.size());
    std::string().swap(s.in);
    lock.lock();
    s.state = Segment::State::Done;
    if (!ok) fault = true;
  }
  void work() {
    SegmentDeflater d(level);
    std::unique_lock lock(m);
    for (;;) {
      Segment* s = nullptr;
      cv.wait(lock, [&] { return closing || (s = take()) != nullptr; });
      if (!s) return;
      deflate(d, *s, lock);
      cv.notify_all();
    }
  }

  const int level;
  std::mutex m;
  std::condition_variable cv;
  std::deque<std::unique_ptr<Segment>> items;  // not yet written, in file order
  size_t queued = 0;                           // items waiting for a deflater
  bool closing = false;
  bool fault = false;   // a segment failed to deflate
  bool tried = false;   // whether the second thread was asked for
  SegmentDeflater own;  // the writer's thread's
  // Only the writer's thread uses these: where the entry being written has its first
  // compressed byte, and the CRC of its segments written so far.
  uint64_t data_at = 0;
  uint32_t crc = 0;
  std::thread worker;
};

ZipWriter::ZipWriter(fs::path target, int level)
    : target_(std::move(target)), file_(target_), level_(level) {
  if (!file_.ok())
    throw Error(file_.error_code() == ENOENT ? err::file_not_found : err::host_failure,
                "cannot save '" + target_.string() + "': " + file_.error());
  buffer_.reserve(1 << 20);
}

ZipWriter::~ZipWriter() {
  pipeline_.reset();  // stops the second thread before anything it could touch goes
  if (compressor_) libdeflate_free_compressor(static_cast<libdeflate_compressor*>(compressor_));
}

void ZipWriter::fail(const std::string& problem) {
  throw Error(err::host_failure, "cannot save '" + target_.string() + "': " + problem);
}

void ZipWriter::flush() {
  if (!file_.write(buffer_)) fail(file_.error());
  buffer_.clear();
}

void ZipWriter::write(const void* data, size_t n) {
  if (buffer_.size() + n > (1 << 20)) flush();
  if (n > (1 << 20)) {
    // Large pieces go straight to the file.
    if (!file_.write(data, n)) fail(file_.error());
  } else {
    buffer_.append(static_cast<const char*>(data), n);
  }
  offset_ += n;
}

ZipWriter::Central ZipWriter::begin_entry(std::string_view name, const ZipEntry* like) {
  if (committed_) fail("the package was already written");
  Central c;
  c.name = std::string(name);
  if (std::string why = bad_name_reason(c.name); !why.empty()) fail(why);
  std::string folded = c.name;
  for (char& ch : folded) ch = fold(ch);
  if (!names_.insert(std::move(folded)).second) fail("two entries named '" + c.name + "'");
  if (like) {
    c.version_made_by = like->version_made_by;
    c.mod_time = like->mod_time;
    c.mod_date = like->mod_date;
    c.internal_attributes = like->internal_attributes;
    c.external_attributes = like->external_attributes;
    c.flags = like->flags & kFlagUtf8;
  }
  bool ascii = std::all_of(name.begin(), name.end(),
                           [](char ch) { return static_cast<unsigned char>(ch) < 0x80; });
  if (!ascii) c.flags |= kFlagUtf8;
  return c;
}

void ZipWriter::write_header(Central& c) {
  // Sizes are known (or patched in) before the package is complete, so the local header
  // carries them and no data descriptor follows.
  c.flags &= static_cast<uint16_t>(~kFlagDescriptor);
  c.offset = offset_;
  bool big = c.size >= 0xffffffff || c.compressed_size >= 0xffffffff;
  std::string h;
  put32(h, kLocalSig);
  put16(h, big ? 45 : 20);
  put16(h, c.flags);
  put16(h, c.method);
  put16(h, c.mod_time);
  put16(h, c.mod_date);
  put32(h, c.crc32);
  put32(h, big ? 0xffffffff : static_cast<uint32_t>(c.compressed_size));
  put32(h, big ? 0xffffffff : static_cast<uint32_t>(c.size));
  put16(h, static_cast<uint16_t>(c.name.size()));
  put16(h, big ? 20 : 0);
  h += c.name;
  if (big) {
    put16(h, 0x0001);
    put16(h, 16);
    put64(h, c.size);
    put64(h, c.compressed_size);
  }
  write(h.data(), h.size());
}

void ZipWriter::write_entry(Central c, std::string_view data) {
  write_header(c);
  write(data.data(), data.size());
  central_.push_back(std::move(c));
}

void ZipWriter::copy(const ZipReader& source, const ZipEntry& entry) {
  Central c = begin_entry(entry.name, nullptr);
  drain(true);
  c.version_made_by = entry.version_made_by;
  c.flags = entry.flags;
  c.method = entry.method;
  c.mod_time = entry.mod_time;
  c.mod_date = entry.mod_date;
  c.crc32 = entry.crc32;
  c.compressed_size = entry.compressed_size;
  c.size = entry.size;
  c.internal_attributes = entry.internal_attributes;
  c.external_attributes = entry.external_attributes;
  write_header(c);
  source.copy_raw(entry, [&](const char* p, size_t n) { write(p, n); });
  central_.push_back(std::move(c));
}

void ZipWriter::add(std::string_view name, std::string_view content, const ZipEntry* like) {
  Central c = begin_entry(name, like);
  drain(true);
  c.size = content.size();
  c.crc32 = libdeflate_crc32(0, content.data(), content.size());
  if (!compressor_) {
    compressor_ = libdeflate_alloc_compressor(std::clamp(level_, 1, 12));
    if (!compressor_) fail("out of memory");
  }
  auto* comp = static_cast<libdeflate_compressor*>(compressor_);
  std::string packed(libdeflate_deflate_compress_bound(comp, content.size()), '\0');
  size_t n = libdeflate_deflate_compress(comp, content.data(), content.size(), packed.data(),
                                         packed.size());
  if (n == 0 || n >= content.size()) {
    // Deflate gains nothing on tiny or incompressible content; store it.
    c.method = 0;
    c.compressed_size = content.size();
    write_entry(std::move(c), content);
  } else {
    c.method = 8;
    c.compressed_size = n;
    write_entry(std::move(c), std::string_view(packed.data(), n));
  }
}

void ZipWriter::write_segment(Segment& s) {
  Pipeline& p = *pipeline_;
  Central& c = central_[s.entry];
  switch (s.kind) {
    case Segment::Kind::Header:
      write_header(c);  // sizes and CRC are patched in once known
      p.data_at = offset_;
      p.crc = 0;
      return;
    case Segment::Kind::Data:
      write(s.out.data(), s.out.size());
      p.crc = static_cast<uint32_t>(crc32_combine(p.crc, s.crc, static_cast<z_off_t>(s.size)));
      return;
    case Segment::Kind::End: {
      c.size = s.size;
      c.crc32 = p.crc;
      c.compressed_size = offset_ - p.data_at;
      if (c.size >= 0xffffffff || c.compressed_size >= 0xffffffff)
        fail("part '" + c.name + "' is too large");
      // The header went out with zeros where the CRC and sizes go; write them now.
      flush();
      std::string fix;
      put32(fix, c.crc32);
      put32(fix, static_cast<uint32_t>(c.compressed_size));
      put32(fix, static_cast<uint32_t>(c.size));
      if (!file_.write_at(fix.data(), fix.size(), c.offset + 14)) fail(file_.error());
      return;
    }
  }
}

void ZipWriter::drain(bool all) {
  if (!pipeline_) return;
  Pipeline& p = *pipeline_;
  std::unique_lock lock(p.m);
  for (;;) {
    if (p.fault) fail("compression failed");
    while (!p.items.empty() && p.items.front()->state == Segment::State::Done) {
      std::unique_ptr<Segment> s = std::move(p.items.front());
      p.items.pop_front();
      lock.unlock();
      write_segment(*s);
      s.reset();
      lock.lock();
    }
    if (p.items.empty() || (!all && p.queued < kBacklog)) return;
    if (Segment* s = p.take())
      p.deflate(p.own, *s, lock);
    else
      p.cv.wait(lock, [&] { return p.items.front()->state == Segment::State::Done; });
  }
}

void ZipWriter::add_stream(std::string_view name, const std::function<void(EntrySink&)>& produce,
                           const ZipEntry* like) {
  Central c = begin_entry(name, like);
  c.method = 8;
  if (!pipeline_) pipeline_ = std::make_unique<Pipeline>(stream_level(level_));
  const size_t entry = central_.size();
  central_.push_back(std::move(c));
  auto header = pipeline_->fresh(Segment::Kind::Header);
  header->entry = entry;
  pipeline_->push(std::move(header));

  // Deflating takes longer than producing a worksheet's text, so a second thread deflates
  // segments beside the producer, and the producer deflates one itself whenever enough are
  // waiting. The segments of this entry not deflated when it ends are left to both threads
  // while the caller goes on to the next entry; the file gets everything in order.
  std::string window;  // the last kWindow bytes of the previous segment
  std::unique_ptr<Segment> cut = pipeline_->fresh(Segment::Kind::Data);
  auto dispatch = [&](bool last) {
    cut->last = last;
    cut->entry = entry;
    cut->dict = window;
    // Segments before the last are full, so the next one's dictionary is this one's tail.
    if (!last) window.assign(cut->in, cut->in.size() - kWindow, kWindow);
    pipeline_->push(std::move(cut));
    if (!last) cut = pipeline_->fresh(Segment::Kind::Data);
    const bool threaded = !last && parallel_ ? pipeline_->start() : pipeline_->worker.joinable();
    drain(!threaded);
  };
  EntrySink sink;
  sink.consume_ = [&](std::string_view rest) {
    while (!rest.empty()) {
      if (cut->in.empty()) cut->in.reserve(kSegment);
      size_t n = std::min(rest.size(), kSegment - cut->in.size());
      cut->in.append(rest.data(), n);
      rest.remove_prefix(n);
      if (cut->in.size() == kSegment) dispatch(false);
    }
  };
  produce(sink);
  sink.flush();
  dispatch(true);
  auto end = pipeline_->fresh(Segment::Kind::End);
  end->entry = entry;
  end->size = sink.total();
  pipeline_->push(std::move(end));
  drain(!pipeline_->worker.joinable());
}

void ZipWriter::commit() {
  if (committed_) fail("the package was already written");
  drain(true);
  if (pipeline_) pipeline_->stop();
  uint64_t cd_offset = offset_;
  std::string d;
  for (const auto& c : central_) {
    d.clear();
    bool big_size = c.size >= 0xffffffff || c.compressed_size >= 0xffffffff;
    bool big_offset = c.offset >= 0xffffffff;
    std::string extra;
    if (big_size || big_offset) {
      put16(extra, 0x0001);
      put16(extra, static_cast<uint16_t>((big_size ? 16 : 0) + (big_offset ? 8 : 0)));
      if (big_size) {
        put64(extra, c.size);
        put64(extra, c.compressed_size);
      }
      if (big_offset) put64(extra, c.offset);
    }
    put32(d, kCentralSig);
    put16(d, c.version_made_by);
    put16(d, (big_size || big_offset) ? 45 : 20);
    put16(d, c.flags);
    put16(d, c.method);
    put16(d, c.mod_time);
    put16(d, c.mod_date);
    put32(d, c.crc32);
    put32(d, big_size ? 0xffffffff : static_cast<uint32_t>(c.compressed_size));
    put32(d, big_size ? 0xffffffff : static_cast<uint32_t>(c.size));
    put16(d, static_cast<uint16_t>(c.name.size()));
    put16(d, static_cast<uint16_t>(extra.size()));
    put16(d, 0);  // comment
    put16(d, 0);  // disk
    put16(d, c.internal_attributes);
    put32(d, c.external_attributes);
    put32(d, big_offset ? 0xffffffff : static_cast<uint32_t>(c.offset));
    d += c.name;
    d += extra;
    write(d.data(), d.size());
  }
  uint64_t cd_size = offset_ - cd_offset;
  uint64_t count = central_.size();
  bool big = count >= 0xffff || cd_size >= 0xffffffff || cd_offset >= 0xffffffff;
  d.clear();
  if (big) {
    uint64_t rec = offset_;
    put32(d, kEnd64Sig);
    put64(d, 44);
    put16(d, 45);
    put16(d, 45);
    put32(d, 0);
    put32(d, 0);
    put64(d, count);
    put64(d, count);
    put64(d, cd_size);
    put64(d, cd_offset);
    put32(d, kEnd64LocatorSig);
    put32(d, 0);
    put64(d, rec);
    put32(d, 1);
  }
  put32(d, kEndSig);
  put16(d, 0);
  put16(d, 0);
  put16(d, big ? 0xffff : static_cast<uint16_t>(count));
  put16(d, big ? 0xffff : static_cast<uint16_t>(count));
  put32(d, big ? 0xffffffff : static_cast<uint32_t>(cd_size));
  put32(d, big ? 0xffffffff : static_cast<uint32_t>(cd_offset));
  put16(d, 0);
  write(d.data(), d.size());
  flush();

  if (!file_.commit()) fail(file_.error());
  committed_ = true;
}

}  // namespace qz::engine::xlsx
