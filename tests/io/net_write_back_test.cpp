// What the interface accepts, the NET writer either writes so that the
// parser gives it back (compared through the public queries), or refuses
// with format before it writes a byte: attribute keys that are item names,
// odd bytes in strings, and numbers at the edges of what the text holds.
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "orvel.h"

namespace {

const char *const kKeys[] = {"label",
                             "position",
                             "states",
                             "subtype",
                             "state_values",
                             "node_size",
                             "inputs",
                             "outputs",
                             "class",
                             "instance",
                             "node",
                             "decision",
                             "utility",
                             "potential",
                             "continuous",
                             "discrete",
                             "net",
                             "data",
                             "model_nodes",
                             "model_data",
                             "samples_per_interval",
                             "experience",
                             "fading",
                             "normal",
                             "infinity",
                             "_",
                             "x9",
                             "Label"};
const char *const kValues[] = {"",
                               "plain",
                               "say \"hi\"",
                               "back\\slash\\",
                               "two\nlines\r\n",
                               "tab\there",
                               "\x01"
                               "7 and \x01x",
                               "caf\xc3\xa9 \xff\x80",
                               "% not a comment",
                               "\\\"}; node X {"};

// Keys that the parser reads as items of the block that would hold them.
const std::set<std::string> kNodeItems = {"label", "position", "states", "subtype", "state_values"};
const std::set<std::string> kDomainItems = {"node_size"};
const std::set<std::string> kClassItems = {"node_size", "inputs",  "outputs",   "class",      "instance", "node",
                                           "decision",  "utility", "potential", "continuous", "discrete"};

// What ov_domain_write_net prints, and its status.
std::string write_text(ov_domain_t domain, ov_status_t &status) {
  char *buffer = nullptr;
  std::size_t size = 0;
  std::FILE *stream = open_memstream(&buffer, &size);
  status = ov_domain_write_net(domain, stream);
  std::fclose(stream);
  std::string text(buffer, size);
  std::free(buffer);
  return text;
}

// A two-node network whose strings hold odd bytes.
ov_domain_t small_network() {
  ov_domain_t d = ov_new_domain();
  ov_node_t a = ov_domain_new_node(d, ov_category_chance, ov_kind_discrete);
  ov_node_t b = ov_domain_new_node(d, ov_category_chance, ov_kind_discrete);
  ov_node_set_name(a, "A");
  ov_node_set_name(b, "B");
  ov_node_set_label(a, "line one\nline \"two\" \\ caf\xc3\xa9");
  ov_node_set_number_of_states(a, 2);
  ov_node_set_state_label(a, 0, "up\nthen down");
  ov_node_set_state_label(a, 1,
                          "\x01"
                          "7\t\xfe");
  ov_node_set_position(a, -16777216, 16777216);
  ov_node_add_parent(b, a);
  ov_domain_set_node_size(d, 80, 40);
  return d;
}

std::vector<std::pair<std::string, std::string>> attributes(ov_attribute_t a) {
  std::vector<std::pair<std::string, std::string>> list;
  for (; a != nullptr; a = ov_attribute_get_next(a))
    list.emplace_back(ov_attribute_get_key(a), ov_attribute_get_value(a));
  return list;
}

void expect_same(ov_domain_t x, ov_domain_t y, const std::string &what) {
  EXPECT_EQ(attributes(ov_domain_get_first_attribute(x)), attributes(ov_domain_get_first_attribute(y))) << what;
  int wx, hx, wy, hy;
  ov_domain_get_node_size(x, &wx, &hx);
  ov_domain_get_node_size(y, &wy, &hy);
  EXPECT_EQ(wx, wy) << what;
  EXPECT_EQ(hx, hy) << what;
  ov_node_t m = ov_domain_get_first_node(x), n = ov_domain_get_first_node(y);
  for (; m != nullptr && n != nullptr; m = ov_node_get_next(m), n = ov_node_get_next(n)) {
    EXPECT_STREQ(ov_node_get_name(m), ov_node_get_name(n)) << what;
    EXPECT_STREQ(ov_node_get_label(m), ov_node_get_label(n)) << what;
    EXPECT_EQ(attributes(ov_node_get_first_attribute(m)), attributes(ov_node_get_first_attribute(n))) << what;
    int px, py, qx, qy;
    ov_node_get_position(m, &px, &py);
    ov_node_get_position(n, &qx, &qy);
    EXPECT_EQ(px, qx) << what;
    EXPECT_EQ(py, qy) << what;
    ASSERT_EQ(ov_node_get_number_of_states(m), ov_node_get_number_of_states(n)) << what;
    for (ov_index_t s = 0; s < ov_node_get_number_of_states(m); ++s) {
      EXPECT_STREQ(ov_node_get_state_label(m, s), ov_node_get_state_label(n, s)) << what;
      const bool numeric = ov_node_get_subtype(m) == ov_subtype_number || ov_node_get_subtype(m) == ov_subtype_interval;
      if (numeric) {
        EXPECT_EQ(ov_node_get_state_value(m, s), ov_node_get_state_value(n, s)) << what << " value " << s;
      }
    }
  }
  EXPECT_TRUE(m == nullptr && n == nullptr) << what;
}

// Writes, then either expects the refusal (with nothing written) or parses
// the text back and compares.
void expect_written_back(ov_domain_t d, bool refused, const std::string &what) {
  ov_status_t status;
  std::string text = write_text(d, status);
  if (refused) {
    EXPECT_EQ(status, ov_error_format) << what;
    EXPECT_EQ(text, "") << what;
    return;
  }
  ASSERT_EQ(status, ov_error_none) << what;
  ov_domain_t back = ov_net_parse_from_string(text.c_str(), nullptr);
  ASSERT_NE(back, nullptr) << what << "\n" << text;
  expect_same(d, back, what);
  ov_domain_delete(back);
}

TEST(NetWriteBack, EveryAttributeTheSettersTakeReadsBackOrTheWriteRefusesIt) {
  for (const char *key : kKeys)
    for (const char *value : kValues)
      for (bool on_node : {false, true}) {
        ov_domain_t d = small_network();
        ov_node_t a = ov_domain_get_first_node(d);
        ASSERT_EQ(on_node ? ov_node_set_attribute(a, key, value) : ov_domain_set_attribute(d, key, value),
                  ov_error_none);
        ov_domain_set_attribute(d, "other", value);
        ov_node_set_attribute(ov_node_get_next(a), "other", value);
        const bool item = (on_node ? kNodeItems : kDomainItems).count(key) > 0;
        expect_written_back(d, item, std::string(on_node ? "node key " : "domain key ") + key);
        ov_domain_delete(d);
      }
}

TEST(NetWriteBack, ClassAttributesReadBackOrTheWriteRefusesThem) {
  const std::string file = testing::TempDir() + "write_back_class.net";
  for (const char *key : kKeys)
    for (bool on_node : {false, true}) {
      ov_class_collection_t cc = ov_new_class_collection();
      ov_class_t c = ov_cc_new_class(cc);
      ov_class_set_name(c, "C");
      ov_node_t n = ov_class_new_node(c, ov_category_chance, ov_kind_discrete);
      ov_node_set_name(n, "N");
      ASSERT_EQ(on_node ? ov_node_set_attribute(n, key, kValues[9]) : ov_class_set_attribute(c, key, kValues[9]),
                ov_error_none);
      const bool item = (on_node ? kNodeItems : kClassItems).count(key) > 0;
      const std::string what = std::string(on_node ? "class node key " : "class key ") + key;
      std::remove(file.c_str());
      EXPECT_EQ(ov_cc_save_as_net(cc, file.c_str()), item ? ov_error_format : ov_error_none) << what;
      if (item) {
        EXPECT_EQ(std::fopen(file.c_str(), "r"), nullptr) << what; // the file was not made
      } else {
        ov_class_collection_t back = ov_new_class_collection();
        ASSERT_EQ(ov_net_parse_classes(file.c_str(), back, nullptr, nullptr, nullptr), ov_error_none) << what;
        ov_class_t b = ov_cc_get_class_by_name(back, "C");
        expect_same(reinterpret_cast<ov_domain_t>(c), reinterpret_cast<ov_domain_t>(b), what);
        ov_cc_delete(back);
      }
      ov_cc_delete(cc);
    }
  std::remove(file.c_str());
}

TEST(NetWriteBack, NumbersAtTheEdgesReadBackOrAreRefused) {
  ov_domain_t d = small_network();
  ov_node_t a = ov_domain_get_node_by_name(d, "A"), b = ov_domain_get_node_by_name(d, "B");
  // State values: an infinity is written as the infinite bound, NaN not at all.
  ov_node_set_subtype(a, ov_subtype_interval);
  ov_node_set_state_value(a, 0, -DBL_MAX);
  ov_node_set_state_value(a, 1, -2.5e-300);
  ov_node_set_state_value(a, 2, DBL_MAX);
  expect_written_back(d, false, "interval bounds");
  ov_node_set_state_value(a, 2, INFINITY);
  ov_status_t status;
  ov_domain_t back = ov_net_parse_from_string(write_text(d, status).c_str(), nullptr);
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(ov_node_get_state_value(ov_domain_get_node_by_name(back, "A"), 2), DBL_MAX);
  ov_domain_delete(back);
  ov_node_set_state_value(a, 1, NAN);
  expect_written_back(d, true, "state value NaN");
  ov_node_set_state_value(a, 1, 0.0);
  // Node sizes and positions go through 32-bit floats in the parser.
  ov_domain_set_node_size(d, -1, 5);
  expect_written_back(d, true, "node size -1");
  ov_domain_set_node_size(d, 16777217, 5);
  expect_written_back(d, true, "node size 2^24 + 1");
  ov_domain_set_node_size(d, 1 << 30, 5);
  expect_written_back(d, false, "node size 2^30");
  ov_node_set_position(a, INT_MAX, 0);
  expect_written_back(d, true, "position INT_MAX");
  ov_node_set_position(a, INT_MIN, 0);
  expect_written_back(d, false, "position INT_MIN");
  // Table cells, probability and utility, and a CG parameter.
  ov_number_t *cells = ov_table_get_data(ov_node_get_table(b));
  for (float bad : {NAN, INFINITY, -INFINITY}) {
    cells[1] = bad;
    expect_written_back(d, true, "probability cell " + std::to_string(bad));
  }
  cells[1] = 3.0e38f;
  expect_written_back(d, false, "probability cell 3e38");
  cells[1] = -0.5f;
  expect_written_back(d, false, "negative cell, nested form");
  cells[1] = 0.5f;
  ov_table_get_data(ov_node_get_table(a))[0] = -0.5f;
  expect_written_back(d, true, "negative cell, flat form");
  ov_table_get_data(ov_node_get_table(a))[0] = 0.5f;
  ov_domain_t u = ov_new_domain();
  ov_node_t x = ov_domain_new_node(u, ov_category_chance, ov_kind_discrete);
  ov_node_t v = ov_domain_new_node(u, ov_category_utility, ov_kind_discrete);
  ov_node_add_parent(v, x);
  ov_table_get_data(ov_node_get_table(v))[0] = -INFINITY;
  expect_written_back(u, true, "utility cell -inf");
  ov_table_get_data(ov_node_get_table(v))[0] = -1e30f;
  expect_written_back(u, false, "utility cell -1e30");
  ov_domain_delete(u);
  ov_domain_t g = ov_new_domain();
  ov_node_t y = ov_domain_new_node(g, ov_category_chance, ov_kind_continuous);
  EXPECT_EQ(ov_node_set_alpha(y, NAN, 0), ov_error_none);
  expect_written_back(g, true, "alpha NaN");
  ov_node_set_alpha(y, 2.5, 0);
  expect_written_back(g, false, "alpha 2.5");
  ov_domain_delete(g);
  // A model expression with an infinite constant.
  ov_node_t list[] = {nullptr};
  ov_model_t model = ov_node_new_model(a, list);
  ov_model_set_expression(model, 0, ov_number_make_expression(INFINITY));
  expect_written_back(d, true, "model constant inf");
  ov_domain_delete(d);
}

} // namespace
