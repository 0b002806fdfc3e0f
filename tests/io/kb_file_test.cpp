// KB files assembled byte by byte from the field list, one per version:
// each loads to the expected domain, the writer gives the same bytes back,
// and damaged or foreign files fail with their codes.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <zlib.h>

#include "io/kb_files.h"
#include "io/kb_format.h"
#include "orvel.h"

namespace {

// Little-endian bytes, assembled by hand.
struct Bytes {
  std::vector<std::uint8_t> v;
  Bytes &byte(int b) { return v.push_back(static_cast<std::uint8_t>(b)), *this; }
  Bytes &count(std::uint32_t n) {
    if (n < 128) return byte(static_cast<int>(n));
    if (n < 32640) return byte(static_cast<int>(128 + (n - 128) / 256)).byte(static_cast<int>((n - 128) % 256));
    byte(255);
    for (int i = 0; i < 4; ++i) byte(static_cast<int>((n >> (8 * i)) & 255));
    return *this;
  }
  Bytes &str(const char *s) {
    count(static_cast<std::uint32_t>(std::strlen(s) + 1));
    for (const char *c = s; *c; ++c) byte(*c);
    return *this;
  }
  Bytes &null() { return byte(0); }
  Bytes &raw(const void *p, int n) {
    const auto *b = static_cast<const std::uint8_t *>(p);
    v.insert(v.end(), b, b + n);
    return *this;
  }
  Bytes &i32(std::int32_t x) { return raw(&x, 4); }
  Bytes &f32(float x) { return raw(&x, 4); }
  Bytes &f64(double x) { return raw(&x, 8); }
  bool wide = false; // numbers of 8 bytes
  Bytes &num(float x) { return wide ? f64(x) : f32(x); }
};

// Operator bytes of "number" and "add" in each version, from the tables of
// old operator lists; Binomial is 66 in all of them.
int number_byte(int version) { return version <= 7 ? 91 : version == 8 ? 100 : 105; }
int add_byte(int version) { return version <= 7 ? 79 : version == 8 ? 88 : 93; }

// A and B (B has parent A). A: labels yes/no, position (10, 20), state 0
// selected. B: numbered states 0..2, a likelihood, a model over A with
// Binomial (2, 0.5) and Binomial (2, 0.25 + 0.25).
std::vector<std::uint8_t> small_file(int version, const char *password = nullptr, bool wide = false) {
  Bytes b;
  b.wide = wide;
  b.byte(125).byte(0).byte(version).byte(2).byte(4).count(wide ? 8 : 4).byte(8).byte(1).byte(2).byte(4);
  b.count(2).count(2).count(0).count(0).count(0).byte(0).byte(0).count(50).count(30);
  b.str("owner").str("me").null();
  // Node A.
  b.byte(7).byte(0).str("A").str("a").i32(10).i32(20).str("colour").str("red").null();
  b.count(2).byte(30).byte(1).str("yes").str("no").byte(0).byte(1).count(0);
  // Node B.
  b.byte(7).byte(0).str("B").str("").i32(-5).i32(0).null();
  b.count(3).byte(32).byte(0).byte(1).f64(0).f64(1).f64(2).f64(3);
  b.byte(3).num(0.5f).num(1.0f).num(0.25f);
  if (version == 10) {
    const std::uint8_t salt[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    const auto block = orvel::kb_password_block(password, salt);
    b.count(static_cast<std::uint32_t>(block.size()));
    b.raw(block.data(), static_cast<int>(block.size()));
  }
  // Tables: A's, then B's over (A, B).
  b.count(1).count(1).byte(0).byte(0).num(0.25f).num(0.75f);
  b.count(2).count(1).count(2).byte(0).byte(0);
  for (float x : {0.25f, 0.5f, 0.25f, 0.5f, 0.0f, 0.5f}) b.num(x);
  b.byte(0); // no chain components
  // Links of A, then of B.
  b.count(0).count(1).count(2).count(1).count(0).count(0).byte(0);
  b.count(1).count(1).count(0).count(2).count(0).count(0).byte(1).count(1).count(1);
  b.byte(66).count(2).byte(number_byte(version)).f64(2).byte(number_byte(version)).f64(0.5);
  b.byte(66).count(2).byte(number_byte(version)).f64(2).byte(add_byte(version)).count(2);
  b.byte(number_byte(version)).f64(0.25).byte(number_byte(version)).f64(0.25);
  if (version >= 7) b.count(10).byte(1);
  return b.v;
}

std::string text_of(ov_expression_t e) {
  char *s = ov_expression_to_string(e);
  std::string t = s != nullptr ? s : "(null)";
  std::free(s);
  return t;
}

TEST(KbFile, HandMadeFilesOfEachVersionLoadToTheDomain) {
  for (int version = 6; version <= 10; ++version) {
    const auto bytes = small_file(version, "secret");
    ov_domain_t d = orvel::kb_read_bytes(bytes.data(), bytes.size(), "secret");
    ASSERT_NE(d, nullptr) << version << ": " << ov_error_name(ov_error_code());
    int w = 0, h = 0, x = 0, y = 0;
    ASSERT_EQ(ov_domain_get_node_size(d, &w, &h), ov_error_none);
    EXPECT_EQ(w * 100 + h, 5030);
    EXPECT_STREQ(ov_domain_get_attribute(d, "owner"), "me");
    ov_node_t a = ov_domain_get_node_by_name(d, "A"), b = ov_domain_get_node_by_name(d, "B");
    ASSERT_TRUE(a != nullptr && b != nullptr);
    EXPECT_STREQ(ov_node_get_label(a), "a");
    ASSERT_EQ(ov_node_get_position(a, &x, &y), ov_error_none);
    EXPECT_EQ(x * 100 + y, 1020);
    EXPECT_STREQ(ov_node_get_attribute(a, "colour"), "red");
    EXPECT_STREQ(ov_node_get_state_label(a, 1), "no");
    EXPECT_EQ(ov_node_get_subtype(b), ov_subtype_number);
    EXPECT_EQ(ov_node_get_state_value(b, 2), 2.0);
    EXPECT_EQ(ov_node_get_parents(b)[0], a);
    EXPECT_EQ(ov_node_get_entered_finding(a, 0), 1.0f);
    EXPECT_EQ(ov_node_get_entered_finding(a, 1), 0.0f);
    EXPECT_EQ(ov_node_get_entered_finding(b, 2), 0.25f);
    EXPECT_EQ(ov_table_get_data(ov_node_get_table(b))[4], 0.0f);
    ov_model_t m = ov_node_get_model(b);
    ASSERT_NE(m, nullptr);
    EXPECT_EQ(text_of(ov_model_get_expression(m, 0)), "Binomial (2, 0.5)") << version;
    EXPECT_EQ(text_of(ov_model_get_expression(m, 1)), "Binomial (2, 0.25 + 0.25)") << version;
    ov_domain_delete(d);
  }
}

TEST(KbFile, TheWriterGivesTheHandMadeBytesThroughGzip) {
  const auto bytes = small_file(9);
  ov_domain_t d = orvel::kb_read_bytes(bytes.data(), bytes.size(), nullptr);
  ASSERT_NE(d, nullptr);
  const std::string path = testing::TempDir() + "small.kb";
  ASSERT_EQ(ov_domain_save_as_kb(d, path.c_str(), nullptr), ov_error_none);
  gzFile f = gzopen(path.c_str(), "rb");
  ASSERT_NE(f, nullptr);
  std::vector<std::uint8_t> back(bytes.size() + 16);
  back.resize(static_cast<std::size_t>(gzread(f, back.data(), static_cast<unsigned>(back.size()))));
  gzclose(f);
  EXPECT_EQ(back, bytes);
  // Big-endian: every multi-byte item turned round, and it loads the same.
  ASSERT_EQ(ov_domain_save(d, nullptr, 1), ov_error_none);
  ov_domain_t e = ov_load_domain(path.c_str());
  ASSERT_NE(e, nullptr) << ov_error_name(ov_error_code());
  std::vector<std::uint8_t> again;
  ASSERT_EQ(orvel::kb_write_bytes(e, nullptr, 2, again), ov_error_none);
  EXPECT_EQ(again, bytes);
  // Numbers of 8 bytes are narrowed to the same domain.
  const auto wide = small_file(9, nullptr, true);
  ov_domain_t w = orvel::kb_read_bytes(wide.data(), wide.size(), nullptr);
  ASSERT_NE(w, nullptr) << ov_error_name(ov_error_code());
  again.clear();
  ASSERT_EQ(orvel::kb_write_bytes(w, nullptr, 2, again), ov_error_none);
  EXPECT_EQ(again, bytes);
  ov_domain_delete(w);
  EXPECT_EQ(ov_domain_save(d, nullptr, 3), ov_error_usage);
  ov_domain_delete(d);
  ov_domain_delete(e);
  std::remove(path.c_str());
}

TEST(KbFile, PasswordsAndForeignFiles) {
  const std::string path = testing::TempDir() + "locked.kb";
  const auto bytes = small_file(9);
  ov_domain_t d = orvel::kb_read_bytes(bytes.data(), bytes.size(), nullptr);
  ASSERT_EQ(ov_domain_save_as_kb(d, path.c_str(), "open sesame"), ov_error_none);
  EXPECT_EQ(ov_load_domain(path.c_str()), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_invalid_password);
  EXPECT_EQ(ov_kb_load_domain(path.c_str(), "open sesamf"), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_invalid_password);
  ov_domain_t e = ov_kb_load_domain(path.c_str(), "open sesame");
  ASSERT_NE(e, nullptr);
  EXPECT_STREQ(ov_domain_get_file_name(e), path.c_str());
  ov_domain_delete(e);
  ov_domain_delete(d);
  // Plain text is read through as it is and fails at the first byte.
  std::FILE *f = std::fopen(path.c_str(), "wb");
  std::fputs("net { }\n", f);
  std::fclose(f);
  EXPECT_EQ(ov_load_domain(path.c_str()), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_bad_file);
  std::remove(path.c_str());
  EXPECT_EQ(ov_load_domain(path.c_str()), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_io);
  EXPECT_EQ(ov_load_domain(nullptr), nullptr);
  EXPECT_EQ(ov_error_code(), ov_error_usage);
}

ov_error_t load_error(const std::vector<std::uint8_t> &bytes) {
  ov_domain_t d = orvel::kb_read_bytes(bytes.data(), bytes.size(), nullptr);
  if (d != nullptr) ov_domain_delete(d);
  return d != nullptr ? ov_error_none : ov_error_code();
}

TEST(KbFile, DamagedFilesFailWithTheirCodes) {
  const auto good = small_file(9);
  for (std::size_t n = 0; n < good.size(); ++n) {
    const ov_error_t code = load_error(std::vector<std::uint8_t>(good.begin(), good.begin() + n));
    EXPECT_TRUE(code == ov_error_io || code == ov_error_format) << "cut at " << n << ": " << ov_error_name(code);
  }
  auto with = [&](std::size_t at, std::vector<std::uint8_t> replacement) {
    auto bytes = good;
    bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(at));
    bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at), replacement.begin(), replacement.end());
    return load_error(bytes);
  };
  EXPECT_EQ(with(0, {124}), ov_error_bad_file);
  EXPECT_EQ(with(2, {5}), ov_error_bad_version);
  EXPECT_EQ(with(2, {11}), ov_error_bad_version);
  EXPECT_EQ(with(3, {3}), ov_error_format); // byte order
  EXPECT_EQ(with(5, {6}), ov_error_format); // number width
  EXPECT_EQ(with(15, {1}), ov_error_compressed);
  EXPECT_EQ(with(16, {3}), ov_error_format);                   // state
  EXPECT_EQ(with(10, {255, 255, 255, 255, 255}), ov_error_io); // a node count beyond the data
  EXPECT_EQ(with(good.size() - 1, {1, 0}), ov_error_format);   // bytes after the end
  // A table that names node 3 of 2.
  const auto a_table = small_file(9);
  std::size_t at = 0;
  for (std::size_t i = 0; i + 9 < a_table.size(); ++i)
    if (a_table[i] == 1 && a_table[i + 1] == 1 && a_table[i + 2] == 0 && a_table[i + 3] == 0 && a_table[i + 4] == 0 &&
        a_table[i + 7] == 0x3e) {
      at = i + 1;
      break;
    }
  ASSERT_NE(at, 0u);
  EXPECT_EQ(with(at, {3}), ov_error_format);
}

// A compiled network with findings, cut short anywhere or with any one
// byte changed: the load fails with a code that bad data gives, or gives a
// domain that writes the same bytes again.
TEST(KbFile, DamagedCompiledFilesFailOrLoadConsistently) {
  ov_domain_t d = ov_net_parse_domain(ORVEL_NETWORKS "/asia.net", nullptr, nullptr);
  ASSERT_EQ(ov_domain_compile(d), ov_error_none);
  ASSERT_EQ(ov_node_select_state(ov_domain_get_first_node(d), 0), ov_error_none);
  std::vector<std::uint8_t> good;
  ASSERT_EQ(orvel::kb_write_bytes(d, nullptr, 2, good), ov_error_none);
  ov_domain_delete(d);
  const auto acceptable = [](ov_error_t code) {
    return code == ov_error_io || code == ov_error_format || code == ov_error_bad_file ||
           code == ov_error_bad_version || code == ov_error_compressed || code == ov_error_invalid_password;
  };
  for (std::size_t n = 0; n < good.size(); ++n) {
    const ov_error_t code = load_error(std::vector<std::uint8_t>(good.begin(), good.begin() + n));
    EXPECT_TRUE(code == ov_error_io || code == ov_error_format) << "cut at " << n << ": " << ov_error_name(code);
    for (int delta : {1, 255}) {
      auto bytes = good;
      bytes[n] = static_cast<std::uint8_t>(bytes[n] + delta);
      ov_domain_t e = orvel::kb_read_bytes(bytes.data(), bytes.size(), nullptr);
      if (e == nullptr) {
        EXPECT_TRUE(acceptable(ov_error_code())) << "byte " << n << ": " << ov_error_name(ov_error_code());
        continue;
      }
      std::vector<std::uint8_t> first, second;
      ASSERT_EQ(orvel::kb_write_bytes(e, nullptr, 2, first), ov_error_none);
      ov_domain_t again = orvel::kb_read_bytes(first.data(), first.size(), nullptr);
      ASSERT_NE(again, nullptr) << "byte " << n << ": " << ov_error_name(ov_error_code());
      ASSERT_EQ(orvel::kb_write_bytes(again, nullptr, 2, second), ov_error_none);
      EXPECT_EQ(first, second) << "byte " << n;
      ov_domain_delete(again);
      ov_domain_delete(e);
    }
  }
}

} // namespace
