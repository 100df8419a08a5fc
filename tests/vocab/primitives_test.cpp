#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "support/test_support.hpp"
#include "vocab/atomic_file.hpp"
#include "vocab/columns.hpp"
#include "vocab/dates.hpp"
#include "vocab/text_fold.hpp"

namespace qz {
namespace {

TEST(DatesTest, SerialsCountFromTheLastDayOf1899) {
  EXPECT_EQ(dates::serial_from_civil(1899, 12, 30), 0);
  EXPECT_EQ(dates::serial_from_civil(1900, 3, 1), 61);
  EXPECT_EQ(dates::serial_from_civil(1970, 1, 1), dates::kSerialOf1970);
  EXPECT_EQ(dates::serial_from_civil(1904, 1, 1), dates::k1904Shift);
  EXPECT_EQ(dates::serial_from_civil(9999, 12, 31), 2958465);
  // Days past either end of the month roll into the neighbouring month.
  EXPECT_EQ(dates::serial_from_civil(2024, 3, 0), dates::serial_from_civil(2024, 2, 29));
  EXPECT_EQ(dates::serial_from_civil(2023, 2, 29), dates::serial_from_civil(2023, 3, 1));
  EXPECT_EQ(dates::serial_from_civil(1900, 1, -1), 0);
}

TEST(DatesTest, CivilDatesComeBackFromTheirSerialsFarBeyondTheCalendarsUsualYears) {
  for (int64_t year : {-250000, -32768, -1, 0, 1899, 1900, 2000, 32767, 32768, 250000}) {
    for (int month : {1, 2, 12}) {
      const int last = dates::days_in_month(year, month);
      for (int day : {1, last}) {
        const dates::Civil c = dates::civil_from_serial(dates::serial_from_civil(year, month, day));
        EXPECT_EQ(c.year, year);
        EXPECT_EQ(c.month, month);
        EXPECT_EQ(c.day, day);
      }
    }
    // Consecutive years lie 365 or 366 days apart, as their leap years say.
    EXPECT_EQ(dates::serial_from_civil(year + 1, 1, 1) - dates::serial_from_civil(year, 1, 1),
              dates::is_leap(year) ? 366 : 365);
  }
  EXPECT_EQ(dates::civil_from_serial(-1).day, 29);
}

TEST(DatesTest, LeapYearsFollowTheGregorianRule) {
  EXPECT_FALSE(dates::is_leap(1900));
  EXPECT_TRUE(dates::is_leap(2000));
  EXPECT_TRUE(dates::is_leap(2024));
  EXPECT_FALSE(dates::is_leap(2100));
  EXPECT_TRUE(dates::is_leap(-400));
  EXPECT_EQ(dates::days_in_month(2024, 2), 29);
  EXPECT_EQ(dates::days_in_month(1900, 2), 28);
  EXPECT_EQ(dates::days_in_month(2023, 4), 30);
  EXPECT_EQ(dates::days_in_month(2023, 12), 31);
  EXPECT_DOUBLE_EQ(dates::serial_from_unix_seconds(43200), dates::kSerialOf1970 + 0.5);
}

TEST(TextFoldTest, FoldsAsciiAndLatin1LettersOnly) {
  for (char16_t c = 0; c < 0x100; ++c) {
    const char16_t up = fold_case(c);
    if (up != c) {
      EXPECT_EQ(unfold_case(up), c) << static_cast<int>(c);
    }
  }
  EXPECT_EQ(fold_case(u'q'), u'Q');
  EXPECT_EQ(fold_case(u'\u00E9'), u'\u00C9');
  EXPECT_EQ(unfold_case(u'\u00C9'), u'\u00E9');
  // The division and multiplication signs sit among the letters but are none.
  EXPECT_EQ(fold_case(u'\u00F7'), u'\u00F7');
  EXPECT_EQ(unfold_case(u'\u00D7'), u'\u00D7');
  // y with diaeresis has its upper case outside Latin-1, and nothing beyond is folded.
  EXPECT_EQ(fold_case(u'\u00FF'), u'\u00FF');
  EXPECT_EQ(fold_case(u'\u0101'), u'\u0101');
  EXPECT_EQ(fold_case(u'1'), u'1');
}

TEST(ColumnsTest, LettersRunFromAToXfd) {
  EXPECT_EQ(column_letters(0), u"A");
  EXPECT_EQ(column_letters(25), u"Z");
  EXPECT_EQ(column_letters(26), u"AA");
  EXPECT_EQ(column_letters(701), u"ZZ");
  EXPECT_EQ(column_letters(702), u"AAA");
  EXPECT_EQ(column_letters(16383), u"XFD");
  std::string narrow = "$";
  append_column_letters(narrow, 27);
  EXPECT_EQ(narrow, "$AB");
}

std::string read_file(const std::filesystem::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

size_t entries_in(const std::filesystem::path& dir) {
  size_t n = 0;
  for ([[maybe_unused]] const auto& e : std::filesystem::directory_iterator(dir)) ++n;
  return n;
}

TEST(AtomicFileTest, ReplacesTheTargetWholeKeepingItsPermissions) {
  test::TempDir dir;
  const auto target = dir / "out.txt";
  std::ofstream(target) << "old content";
  ::chmod(target.c_str(), 0640);

  {
    AtomicFile file(target);
    ASSERT_TRUE(file.ok());
    EXPECT_TRUE(file.write("new ????"));
    EXPECT_TRUE(file.write(std::string_view(" tail")));
    EXPECT_TRUE(file.write_at("text", 4, 4));
    // Nothing shows at the target before the commit.
    EXPECT_EQ(read_file(target), "old content");
    EXPECT_TRUE(file.commit());
    EXPECT_FALSE(file.ok());
  }
  EXPECT_EQ(read_file(target), "new text tail");
  struct stat st;
  ASSERT_EQ(::stat(target.c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0640u);
  EXPECT_EQ(entries_in(dir.path()), 1u);

  // A new file gets the usual permissions, not a temporary file's owner-only ones.
  const mode_t mask = ::umask(022);
  EXPECT_EQ(write_file_atomically(dir / "new.txt", "x"), "");
  ::umask(mask);
  ASSERT_EQ(::stat((dir / "new.txt").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0644u);
}

TEST(AtomicFileTest, AnAbandonedOrFailedWriteLeavesTheTargetAndNoTemporaryFile) {
  test::TempDir dir;
  const auto target = dir / "keep.txt";
  std::ofstream(target) << "kept";
  {
    AtomicFile file(target);
    EXPECT_TRUE(file.write("discarded"));
  }
  EXPECT_EQ(read_file(target), "kept");
  EXPECT_EQ(entries_in(dir.path()), 1u);

  AtomicFile missing(dir / "no such folder" / "x.txt");
  EXPECT_FALSE(missing.ok());
  EXPECT_EQ(missing.error_code(), ENOENT);
  EXPECT_FALSE(missing.error().empty());
  EXPECT_FALSE(missing.write("x"));
  EXPECT_FALSE(missing.commit());
  EXPECT_NE(write_file_atomically(dir / "no such folder" / "y.txt", "y"), "");
}

}  // namespace
}  // namespace qz
