// A junction forest too large for the sizes of the interface is refused
// before any of its tables is allocated, and the domain stays as it was.
#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "compile/net_structure.h"
#include "orvel.h"

using namespace orvel;
using namespace orvel::test;

namespace {

// A grid of binary nodes, each with the nodes above and to the left as
// parents: small node tables, but cliques about as wide as the grid.
TEST(SizeCheck, AForestWhoseSizeSaturatesIsRefusedBeforeAllocating) {
  constexpr int side = 40;
  ov_domain_t domain = ov_new_domain();
  std::vector<Node *> grid;
  for (int i = 0; i < side; ++i)
    for (int j = 0; j < side; ++j) {
      Node *node = add_node(domain, ("N" + std::to_string(i) + "_" + std::to_string(j)).c_str(), 2);
      if (i > 0) add_arc(grid[(i - 1) * side + j], node);
      if (j > 0) add_arc(grid.back(), node);
      grid.push_back(node);
    }
  ov_table_t corner = ov_node_get_table(grid.back());
  ov_table_get_data(corner)[3] = 0.25f;
  std::FILE *log = std::tmpfile();
  ASSERT_NE(log, nullptr);
  ov_domain_set_log_file(domain, log);

  // In a child, whose peak memory shows what the refused compile took.
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    rusage before{}, after{};
    getrusage(RUSAGE_SELF, &before);
    const bool refused = ov_domain_compile(domain) == ov_error_no_memory;
    getrusage(RUSAGE_SELF, &after);
    _exit(refused && after.ru_maxrss - before.ru_maxrss < 64 * 1024 ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "refused only after allocating";

  EXPECT_EQ(ov_domain_compile(domain), ov_error_no_memory);
  EXPECT_EQ(ov_error_code(), ov_error_no_memory);
  EXPECT_EQ(ov_domain_is_compiled(domain), 0);
  EXPECT_EQ(ov_domain_is_triangulated(domain), 0);
  EXPECT_EQ(ov_node_get_table(grid.back()), corner);
  EXPECT_EQ(ov_table_get_size(corner), 8);
  EXPECT_EQ(ov_table_get_data(corner)[3], 0.25f);

  // The log reported the size that could not be allocated.
  std::rewind(log);
  std::string text;
  for (int c; (c = std::fgetc(log)) != EOF;) text.push_back(static_cast<char>(c));
  EXPECT_NE(text.find("Total clique table size: HUGE"), std::string::npos);
  ov_domain_set_log_file(domain, nullptr);
  std::fclose(log);
  ov_domain_delete(domain);
}

} // namespace
