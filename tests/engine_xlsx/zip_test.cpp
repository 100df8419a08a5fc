// The zip container: what a well-formed package gives back, how a rewritten package keeps
// unchanged entries bit for bit, and how each kind of damaged or hostile file is refused.
#include "engine/xlsx/zip.hpp"

#include <sys/stat.h>

#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "qzxl/error.hpp"
#include "support/test_support.hpp"

namespace qz::engine::xlsx {
namespace {

namespace fs = std::filesystem;
using qz::test::TempDir;
using ::testing::HasSubstr;

std::string slurp(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

void le(std::string& s, uint64_t v, int n) {
  for (int i = 0; i < n; ++i) s.push_back(static_cast<char>((v >> (8 * i)) & 0xff));
}

uint32_t crc_of(std::string_view data) {
  uint32_t c = 0xffffffff;
  for (unsigned char b : data) {
    c ^= b;
    for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xedb88320u & (0u - (c & 1)));
  }
  return ~c;
}

// A hand-made stored-entry zip, so that tests can put into a package what no correct writer
// would: duplicate names, lying sizes, flags, descriptors, zip64 records.
struct Raw {
  std::string name;
  std::string data;
  uint16_t flags = 0;
  uint16_t method = 0;
  int64_t stated_size = -1;  // what the directory claims, when it lies
  bool descriptor = false;   // sizes only after the data, zeros in the local header
  bool zip64 = false;        // sizes and offset in a zip64 extra field
  std::string local_name;    // a different name in the local header
};

std::string build(const std::vector<Raw>& entries, bool zip64_end = false) {
  std::string out, cd;
  for (const Raw& r : entries) {
    uint64_t offset = out.size();
    uint32_t crc = crc_of(r.data);
    uint64_t size = r.stated_size >= 0 ? static_cast<uint64_t>(r.stated_size) : r.data.size();
    const std::string& lname = r.local_name.empty() ? r.name : r.local_name;
    uint16_t flags = r.flags | (r.descriptor ? 8 : 0);
    le(out, 0x04034b50, 4);
    le(out, 20, 2);
    le(out, flags, 2);
    le(out, r.method, 2);
    le(out, 0, 2);
    le(out, 0x21, 2);
    le(out, r.descriptor ? 0 : crc, 4);
    le(out, r.descriptor ? 0 : r.data.size(), 4);
    le(out, r.descriptor ? 0 : size, 4);
    le(out, lname.size(), 2);
    le(out, 0, 2);
    out += lname;
    out += r.data;
    if (r.descriptor) {
      le(out, 0x08074b50, 4);
      le(out, crc, 4);
      le(out, r.data.size(), 4);
      le(out, size, 4);
    }
    std::string extra;
    if (r.zip64) {
      le(extra, 1, 2);
      le(extra, 24, 2);
      le(extra, size, 8);
      le(extra, r.data.size(), 8);
      le(extra, offset, 8);
    }
    le(cd, 0x02014b50, 4);
    le(cd, 0x031e, 2);
    le(cd, 20, 2);
    le(cd, flags, 2);
    le(cd, r.method, 2);
    le(cd, 0, 2);
    le(cd, 0x21, 2);
    le(cd, crc, 4);
    le(cd, r.zip64 ? 0xffffffff : r.data.size(), 4);
    le(cd, r.zip64 ? 0xffffffff : size, 4);
    le(cd, r.name.size(), 2);
    le(cd, extra.size(), 2);
    le(cd, 0, 2);
    le(cd, 0, 2);
    le(cd, 0, 2);
    le(cd, 0, 4);
    le(cd, r.zip64 ? 0xffffffff : offset, 4);
    cd += r.name;
    cd += extra;
  }
  uint64_t cd_offset = out.size();
  out += cd;
  if (zip64_end) {
    uint64_t rec = out.size();
    le(out, 0x06064b50, 4);
    le(out, 44, 8);
    le(out, 45, 2);
    le(out, 45, 2);
    le(out, 0, 4);
    le(out, 0, 4);
    le(out, entries.size(), 8);
    le(out, entries.size(), 8);
    le(out, cd.size(), 8);
    le(out, cd_offset, 8);
    le(out, 0x07064b50, 4);
    le(out, 0, 4);
    le(out, rec, 8);
    le(out, 1, 4);
  }
  le(out, 0x06054b50, 4);
  le(out, 0, 4);
  le(out, zip64_end ? 0xffff : entries.size(), 2);
  le(out, zip64_end ? 0xffff : entries.size(), 2);
  le(out, zip64_end ? 0xffffffff : cd.size(), 4);
  le(out, zip64_end ? 0xffffffff : cd_offset, 4);
  le(out, 0, 2);
  return out;
}

// The message a package's bytes are refused with, or "" when they open.
std::string refusal(std::string bytes, const ZipLimits& limits = {}) {
  try {
    ZipReader z = ZipReader::from_bytes(std::move(bytes), "book.xlsx", limits);
    for (const auto& e : z.entries()) z.read(e);
    return "";
  } catch (const Error& e) {
    EXPECT_EQ(std::string(e.what()).find('\n'), std::string::npos) << e.what();
    EXPECT_THAT(e.what(), HasSubstr("'book.xlsx'"));
    return e.what();
  }
}

std::string compressible(size_t n) {
  std::string s;
  while (s.size() < n) s += "<row r=\"" + std::to_string(s.size()) + "\"><c><v>1</v></c></row>";
  return s;
}

TEST(ZipRead, GivesBackWhatWasWrittenWhateverTheLayout) {
  std::string a = "hello", b = compressible(5000);
  for (bool descriptor : {false, true}) {
    for (bool zip64 : {false, true}) {
      std::vector<Raw> es = {
          {.name = "a.txt", .data = a, .descriptor = descriptor, .zip64 = zip64},
          {.name = "dir/", .data = ""},
          {.name = "x/b.xml", .data = b, .descriptor = descriptor, .zip64 = zip64}};
      ZipReader z = ZipReader::from_bytes(build(es, zip64), "book.xlsx");
      ASSERT_EQ(z.entries().size(), 3u);
      EXPECT_EQ(z.read(*z.find("a.txt")), a);
      EXPECT_EQ(z.read(*z.find("X/B.XML")), b) << "part names ignore case";
      EXPECT_TRUE(z.find("dir/")->is_directory());
      EXPECT_EQ(z.find("b.xml"), nullptr);
    }
  }
}

TEST(ZipRead, AcceptsAnArchiveComment) {
  std::string z = build({{.name = "a", .data = "x"}});
  z[z.size() - 2] = 5;
  z += "hello";
  EXPECT_EQ(refusal(z), "");
}

TEST(ZipRead, RefusesWhatIsNotAZipPackage) {
  EXPECT_THAT(refusal(""), HasSubstr("empty"));
  EXPECT_THAT(refusal("just some text that is long enough to look"), HasSubstr("not a zip"));
  std::string ole("\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", 8);
  ole.resize(4096, '\0');
  EXPECT_THAT(refusal(ole), HasSubstr("encrypted or legacy binary workbook"));
  std::string z = build({{.name = "a.xml", .data = compressible(3000)}});
  EXPECT_THAT(refusal(z.substr(0, z.size() / 2)), HasSubstr("truncated or damaged"));
  EXPECT_THAT(refusal(z.substr(0, z.size() - 3)), HasSubstr("truncated or damaged"));
}

TEST(ZipRead, RefusesNamesThatLeaveThePackage) {
  for (const char* name : {"../evil.xml", "xl/../../evil.xml", "/etc/passwd", "xl\\..\\evil.xml",
                           "C:evil.xml", "xl//sheet.xml", "xl/./a.xml", ""}) {
    EXPECT_NE(refusal(build({{.name = name, .data = "x"}})), "") << name;
  }
  EXPECT_THAT(refusal(build({{.name = std::string("a\0b", 3), .data = "x"}})),
              HasSubstr("control characters"));
  // A name that only looks odd is fine.
  EXPECT_EQ(refusal(build({{.name = "xl/..a/b..xml", .data = "x"}})), "");
}

TEST(ZipRead, RefusesDuplicateEntriesEvenWhenCaseDiffers) {
  EXPECT_THAT(
      refusal(build({{.name = "xl/a.xml", .data = "1"}, {.name = "xl/a.xml", .data = "2"}})),
      HasSubstr("two entries named 'xl/a.xml'"));
  EXPECT_THAT(
      refusal(build({{.name = "xl/a.xml", .data = "1"}, {.name = "XL/A.xml", .data = "2"}})),
      HasSubstr("two entries for one part"));
}

TEST(ZipRead, RefusesEntriesItCannotReadSafely) {
  EXPECT_THAT(refusal(build({{.name = "a", .data = "x", .flags = 1}})), HasSubstr("encrypted"));
  EXPECT_THAT(refusal(build({{.name = "a", .data = "x", .method = 12}})),
              HasSubstr("compression method 12"));
  EXPECT_THAT(refusal(build({{.name = "a", .data = "x", .local_name = "b"}})),
              HasSubstr("local header names 'b'"));
}

TEST(ZipRead, DetectsDamagedData) {
  std::string z = build({{.name = "a.xml", .data = "<a>hello</a>"}});
  z[30 + 5 + 3] ^= 1;  // a byte of the stored data
  EXPECT_THAT(refusal(z), HasSubstr("CRC mismatch"));

  // Deflated data: flip bytes in the middle of the stream.
  TempDir dir;
  {
    ZipWriter w(dir / "a.zip");
    w.add("a.xml", compressible(20000));
    w.commit();
  }
  std::string good = slurp(dir / "a.zip");
  std::string bad = good;
  for (size_t i = 60; i < 80; ++i) bad[i] = static_cast<char>(bad[i] ^ 0x5a);
  EXPECT_THAT(refusal(bad), HasSubstr("damaged"));
}

TEST(ZipRead, BoundsInflationBySizeAndRatio) {
  TempDir dir;
  std::string zeros(8 << 20, '\0');  // compresses about a thousand to one
  {
    ZipWriter w(dir / "bomb.zip", 12);
    w.add("xl/sharedStrings.xml", zeros);
    w.commit();
  }
  std::string bomb = slurp(dir / "bomb.zip");
  EXPECT_THAT(refusal(bomb, {.max_ratio = 100}), HasSubstr("zip bomb"));
  EXPECT_THAT(refusal(bomb, {.max_entry_size = 1 << 20}), HasSubstr("more than the limit"));
  EXPECT_THAT(refusal(bomb, {.max_total_size = 1 << 20}), HasSubstr("more than the limit"));
  EXPECT_EQ(refusal(bomb), "") << "the default limits let a large real part through";

  // An entry whose data inflates beyond the size the directory states stops at that size.
  std::string liar = build({{.name = "a", .data = "0123456789", .stated_size = 4}});
  EXPECT_THAT(refusal(liar), HasSubstr("stored with two different sizes"));
  {
    ZipWriter w(dir / "short.zip");
    w.add("a.xml", compressible(10000));
    w.commit();
  }
  std::string shrunk = slurp(dir / "short.zip");
  // The stated size sits at offset 22 of the local header and 24 of the central record.
  size_t cd = shrunk.rfind(std::string("PK\1\2", 4));
  shrunk[cd + 24] = 100;
  shrunk[cd + 25] = shrunk[cd + 26] = shrunk[cd + 27] = 0;
  EXPECT_THAT(refusal(shrunk), HasSubstr("inflates past its stated size"));
}

TEST(ZipRead, RefusesOverlappingEntries) {
  // One entry's data spanning the next entry's header: the trick of bombs that reuse one
  // compressed stream for many entries.
  std::string z = build({{.name = "a", .data = "x"}, {.name = "b", .data = "y"}});
  size_t first = z.find(std::string("PK\1\2", 4));
  for (size_t off : {first + 20, first + 24}) z[off] = 20;  // a's sizes now reach into b
  EXPECT_THAT(refusal(z), HasSubstr("overlap"));
}

TEST(ZipWrite, CopiesUnchangedEntriesBitForBit) {
  TempDir dir;
  {
    ZipWriter w(dir / "src.xlsx", 1);
    w.add("[Content_Types].xml", compressible(3000));
    w.add("xl/media/image1.bin", std::string(100, '\x7f'));
    w.add("xl/worksheets/sheet1.xml", compressible(50000));
    w.commit();
  }
  ZipReader src = ZipReader::open(dir / "src.xlsx");
  {
    ZipWriter w(dir / "out.xlsx", 9);
    for (const auto& e : src.entries()) {
      if (e.name == "xl/worksheets/sheet1.xml")
        w.add(e.name, "<changed/>", &e);
      else
        w.copy(src, e);
    }
    w.add("xl/new.xml", "<new/>");
    w.commit();
  }
  ZipReader out = ZipReader::open(dir / "out.xlsx");
  ASSERT_EQ(out.entries().size(), 4u);
  for (size_t i = 0; i < 3; ++i) EXPECT_EQ(out.entries()[i].name, src.entries()[i].name);
  for (const char* name : {"[Content_Types].xml", "xl/media/image1.bin"}) {
    const ZipEntry& a = *src.find(name);
    const ZipEntry& b = *out.find(name);
    EXPECT_EQ(a.crc32, b.crc32);
    EXPECT_EQ(a.method, b.method);
    EXPECT_TRUE(std::ranges::equal(src.raw(a), out.raw(b))) << name << " was recompressed";
  }
  EXPECT_EQ(out.read(*out.find("xl/worksheets/sheet1.xml")), "<changed/>");
  EXPECT_EQ(out.find("xl/worksheets/sheet1.xml")->mod_date,
            src.find("xl/worksheets/sheet1.xml")->mod_date);
  EXPECT_EQ(out.read(*out.find("xl/new.xml")), "<new/>");

  // Copying from a package with data descriptors and zip64 fields gives an ordinary one.
  ZipReader odd = ZipReader::from_bytes(
      build({{.name = "a", .data = compressible(500), .descriptor = true, .zip64 = true}}, true),
      "odd.xlsx");
  {
    ZipWriter w(dir / "plain.xlsx");
    w.copy(odd, odd.entries()[0]);
    w.commit();
  }
  ZipReader plain = ZipReader::open(dir / "plain.xlsx");
  EXPECT_EQ(plain.read(plain.entries()[0]), compressible(500));
  EXPECT_EQ(plain.entries()[0].flags & 8, 0);
}

// Large parts are deflated as they are produced, their sizes and CRC filled in afterwards,
// and read back into pages a reader gives up as it moves on: both ends must keep every byte.
TEST(ZipWrite, StreamsEntriesAndReadsThemBackInPagesGivenUpBehind) {
  TempDir dir;
  const std::string big = compressible(3 << 20);  // several sink flushes, several pages
  {
    ZipWriter w(dir / "s.xlsx");
    w.add("a.xml", "<a/>");
    w.add_stream("xl/worksheets/sheet1.xml", [&](EntrySink& sink) {
      for (size_t at = 0; at < big.size(); at += 777) {
        sink.text.append(big, at, 777);
        sink.flush_if_full();
      }
    });
    w.add_stream("empty.xml", [](EntrySink&) {});
    w.add_stream("\xc3\xa9t\xc3\xa9.xml", [](EntrySink& sink) { sink.text = "<b/>"; });
    w.commit();
  }
  // Every reader checks sizes and CRC against the directory; the local headers must agree
  // too, for readers that walk them instead.
  const std::string file = slurp(dir / "s.xlsx");
  ZipReader z = ZipReader::from_bytes(file, "s.xlsx");
  ASSERT_EQ(z.entries().size(), 4u);
  for (const ZipEntry& e : z.entries()) {
    auto field = [&](size_t at) {
      uint32_t v = 0;
      for (int k = 3; k >= 0; --k)
        v = (v << 8) | static_cast<unsigned char>(file[e.header_offset + at + k]);
      return v;
    };
    EXPECT_EQ(field(14), e.crc32) << e.name;
    EXPECT_EQ(field(18), e.compressed_size) << e.name;
    EXPECT_EQ(field(22), e.size) << e.name;
  }
  EXPECT_EQ(z.read(*z.find("xl/worksheets/sheet1.xml")), big);
  EXPECT_EQ(z.read(*z.find("empty.xml")), "");
  EXPECT_EQ(z.read(*z.find("\xc3\xa9t\xc3\xa9.xml")), "<b/>");
  EXPECT_NE(z.find("\xc3\xa9t\xc3\xa9.xml")->flags & 0x800, 0) << "a UTF-8 name says so";

  PartBuffer b = z.read_buffer(*z.find("xl/worksheets/sheet1.xml"));
  ASSERT_EQ(b.view(), big);
  b.release(100, big.size() / 2);
  b.release(50, big.size() / 3);  // a range given back already changes nothing
  EXPECT_EQ(b.view().substr(0, 100), big.substr(0, 100)) << "text before the range stays";
  EXPECT_EQ(b.view().substr(big.size() / 2), big.substr(big.size() / 2))
      << "text after the range stays";
}

// Large parts are deflated in segments on two threads, one part's last segments beside the
// next part's text: the bytes must depend on the content alone (not on the pieces it came in,
// the timing, or whether a second thread ran), the segments must join into one stream every
// reader inflates, each part in its place, and a producer failing half-way must not leave a
// deflater running or a file behind.
TEST(ZipWrite, StreamedEntriesAreTheSameWhateverTheTimingAndFailCleanly) {
  TempDir dir;
  const std::string big = compressible(5 << 20).substr(0, 5 << 20);  // the last segment empty
  auto write = [&](const fs::path& target, const std::string& content, size_t step, bool parallel) {
    ZipWriter w(target);
    w.set_parallel(parallel);
    for (const char* name : {"xl/worksheets/sheet1.xml", "xl/worksheets/sheet2.xml"})
      w.add_stream(name, [&](EntrySink& sink) {
        for (size_t at = 0; at < content.size(); at += step) {
          sink.text.append(content, at, step);
          sink.flush_if_full();
        }
      });
    w.add("xl/styles.xml", "<styleSheet/>");
    w.commit();
  };
  for (const std::string& content : {big, big.substr(0, (3 << 20) + 12345)}) {
    write(dir / "a.xlsx", content, 4096, true);
    write(dir / "b.xlsx", content, 4096, true);
    write(dir / "c.xlsx", content, 777, false);
    write(dir / "d.xlsx", content, content.size(), true);
    const std::string a = slurp(dir / "a.xlsx");
    EXPECT_EQ(a, slurp(dir / "b.xlsx"));
    EXPECT_EQ(a, slurp(dir / "c.xlsx")) << "one thread, other pieces";
    EXPECT_EQ(a, slurp(dir / "d.xlsx")) << "one piece";
    ZipReader z = ZipReader::open(dir / "a.xlsx");
    ASSERT_EQ(z.entries().size(), 3u);
    EXPECT_EQ(z.read(z.entries()[0]), content);
    EXPECT_EQ(z.read(z.entries()[1]), content);
    EXPECT_EQ(z.entries()[1].compressed_size, z.entries()[0].compressed_size);
    EXPECT_LT(z.entries()[0].compressed_size, content.size() / 4);
    EXPECT_EQ(z.read(*z.find("xl/styles.xml")), "<styleSheet/>");
  }

  {
    ZipWriter w(dir / "e.xlsx");
    EXPECT_THROW(w.add_stream("x.xml",
                              [&](EntrySink& sink) {
                                for (int i = 0; i < 3; ++i) {
                                  sink.text.append(big, 0, 1 << 20);
                                  sink.flush_if_full();
                                }
                                throw Error(err::host_failure, "stopped");
                              }),
                 Error);
  }
  EXPECT_FALSE(fs::exists(dir / "e.xlsx"));
  for (const auto& e : fs::directory_iterator(dir.path()))
    EXPECT_EQ(e.path().filename().string().find(".qzxl-"), std::string::npos)
        << "temporary file left: " << e.path();
}

TEST(ZipWrite, ReplacesTheTargetOnlyWhenComplete) {
  TempDir dir;
  fs::path target = dir / "book.xlsx";
  { std::ofstream(target) << "original"; }
  ::chmod(target.c_str(), 0640);
  {
    ZipWriter w(target);
    w.add("a.xml", "<a/>");
    // Abandoned before commit: the target keeps its content and no temporary file remains.
  }
  EXPECT_EQ(slurp(target), "original");
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), 1);

  {
    ZipWriter w(target);
    w.add("a.xml", "<a/>");
    EXPECT_THROW(w.add("A.XML", "<b/>"), Error) << "a package cannot hold a part twice";
    EXPECT_THROW(w.add("../a.xml", "<b/>"), Error);
    w.commit();
  }
  ZipReader z = ZipReader::open(target);
  EXPECT_EQ(z.read(*z.find("a.xml")), "<a/>");
  struct stat st;
  ASSERT_EQ(::stat(target.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u) << "the replaced file's permissions are kept";
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), 1);

  // Saving over the package being read: the reader holds its own bytes.
  {
    ZipWriter w(target);
    for (const auto& e : z.entries()) w.copy(z, e);
    w.add("b.xml", "<b/>");
    w.commit();
  }
  ZipReader again = ZipReader::open(target);
  EXPECT_EQ(again.read(*again.find("a.xml")), "<a/>");
  EXPECT_EQ(again.entries().size(), 2u);

  try {
    ZipWriter w(dir / "no" / "such" / "folder.xlsx");
    FAIL() << "a writer into a missing folder must refuse";
  } catch (const Error& e) {
    EXPECT_THAT(e.what(), HasSubstr("folder.xlsx"));
  }
  EXPECT_THROW(ZipReader::open(dir / "missing.xlsx"), Error);
}

}  // namespace
}  // namespace qz::engine::xlsx
