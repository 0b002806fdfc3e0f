// XMLBIF: every shared network goes NET -> XMLBIF -> NET unchanged, a file
// in the form other tools write reads by its GIVEN order, and hostile XML is
// refused with the place and the reason.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "exchange_compare.h"
#include "orvel.h"

namespace {

using orvel::test::expect_same_network;

void collect(uint32_t, ov_string_t message, void *data) {
  static_cast<std::vector<std::string> *>(data)->push_back(message);
}

TEST(Xmlbif, EverySharedNetworkGoesToXmlbifAndBack) {
  orvel::test::expect_shared_networks_round_trip("xml", ov_domain_save_as_xmlbif, ov_xmlbif_parse_domain);
}

// The layout other tools write: the child's state fastest, then the last
// GIVEN; a definition before its variables; entities and properties.
TEST(Xmlbif, ReadsTheTableByItsGivenOrder) {
  const char *text = R"(<?xml version="1.0"?>
<BIF VERSION="0.3"><NETWORK><NAME>n</NAME><PROPERTY>author = A &amp; B</PROPERTY>
<DEFINITION><FOR>C</FOR><GIVEN>B</GIVEN><GIVEN>A</GIVEN>
  <TABLE>0.1 0.9 0.2 0.8 0.3 0.7 0.4 0.6</TABLE></DEFINITION>
<VARIABLE TYPE="nature"><NAME>A</NAME><OUTCOME>a0</OUTCOME><OUTCOME>a &lt; 1</OUTCOME>
  <PROPERTY>position = (3, 4)</PROPERTY></VARIABLE>
<VARIABLE TYPE="nature"><NAME>B</NAME><OUTCOME>b0</OUTCOME><OUTCOME>b1</OUTCOME></VARIABLE>
<VARIABLE TYPE="nature"><NAME>C</NAME><OUTCOME>y</OUTCOME><OUTCOME>n</OUTCOME></VARIABLE>
<DEFINITION><FOR>A</FOR><TABLE>0.5 0.5</TABLE></DEFINITION>
<DEFINITION><FOR>B</FOR><TABLE>0.5 0.5</TABLE></DEFINITION>
</NETWORK></BIF>)";
  std::vector<std::string> messages;
  ov_domain_t d = ov_xmlbif_parse_from_string(text, collect, &messages);
  ASSERT_NE(d, nullptr) << (messages.empty() ? "" : messages[0]);
  EXPECT_STREQ(ov_domain_get_attribute(d, "author"), "A & B");
  ov_node_t a = ov_domain_get_node_by_name(d, "A"), b = ov_domain_get_node_by_name(d, "B"),
            c = ov_domain_get_node_by_name(d, "C");
  EXPECT_STREQ(ov_node_get_state_label(a, 1), "a < 1");
  int x = 0, y = 0;
  ov_node_get_position(a, &x, &y);
  EXPECT_EQ(x * 10 + y, 34);
  ASSERT_EQ(ov_domain_compile(d), ov_error_none);
  for (int bs = 0; bs < 2; ++bs)
    for (int as = 0; as < 2; ++as) {
      ov_node_select_state(a, as);
      ov_node_select_state(b, bs);
      ASSERT_EQ(ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_normal), ov_error_none);
      EXPECT_NEAR(ov_node_get_belief(c, 0), 0.1 * (2 * bs + as + 1), 1e-6) << bs << as;
    }
  ov_domain_delete(d);
}

TEST(Xmlbif, HostileAndBadXmlIsRefused) {
  std::string nested = "<BIF><NETWORK>";
  for (int i = 0; i < 50000; ++i) nested += "<VARIABLE>";
  const std::string huge = "<BIF VERSION=\"" + std::string(1 << 20, 'x') + "\"/>";
  const std::string laughs = R"(<?xml version="1.0"?><!DOCTYPE BIF [<!ENTITY a "aaaaaaaaaa">
<!ENTITY b "&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;">]><BIF>&b;</BIF>)";
  const struct {
    std::string text, message;
  } cases[] = {
      {nested, "<string>:1:25: <VARIABLE> not expected inside <VARIABLE>"},
      {huge, "<string>:1:1: attribute `VERSION' is too long"},
      {laughs, "<string>:1:36: a document type declaration is not allowed"},
      {"<BIF>&x;</BIF>", "<string>:1:6: undefined entity"},
      {"<BIF><NETWORK>", "<string>:1:15: no element found"},
      {"<NETWORK/>", "<string>:1:1: <NETWORK> where <BIF> was expected"},
      {"<BIF><NETWORK><VARIABLE TYPE=\"decision\"><NAME>D</NAME></VARIABLE></NETWORK></BIF>",
       "<string>:1:15: variables of type `decision' are not supported, only `nature'"},
      {"<BIF><NETWORK><VARIABLE><NAME>A</NAME><OUTCOME>y</OUTCOME></VARIABLE>"
       "<DEFINITION><FOR>A</FOR><TABLE>0.5 x</TABLE></DEFINITION></NETWORK></BIF>",
       "<string>:1:70: the table of `A' holds `x', not a number"},
      {"<BIF><NETWORK><VARIABLE><NAME>A</NAME><OUTCOME>y</OUTCOME></VARIABLE>"
       "<DEFINITION><FOR>A</FOR><TABLE>0.5 0.5</TABLE></DEFINITION></NETWORK></BIF>",
       "<string>:1:70: the table of `A' has 2 numbers, 1 expected"},
      {"<BIF><NETWORK><VARIABLE><NAME>A</NAME><OUTCOME>y</OUTCOME></VARIABLE></NETWORK></BIF>",
       "<string>:1:15: no definition for `A'"},
  };
  for (const auto &c : cases) {
    std::vector<std::string> messages;
    EXPECT_EQ(ov_xmlbif_parse_from_string(c.text.c_str(), collect, &messages), nullptr) << c.text.substr(0, 80);
    EXPECT_EQ(ov_error_code(), ov_error_parse) << c.text.substr(0, 80);
    ASSERT_FALSE(messages.empty()) << c.text.substr(0, 80);
    EXPECT_EQ(messages[0], c.message) << c.text.substr(0, 80);
  }
}

} // namespace
