// Structure learning: the driver.
#include "learn/structure.h"

#include "learn/structure_search.h"

namespace orvel {

ov_status_t domain_learn_structure(Domain *domain) {
  domain->structure_data = {};
  StructureSearch search{domain, {}, {}, {}, {}, 0, {}};
  for (Node *node = domain->first_node(); node != nullptr; node = domain->next_node(node)) search.nodes.push_back(node);
  if (ov_status_t status = run_independence_tests(search); status != ov_error_none) return status;
  if (search.test_count == 0) return ov_error_none;
  domain->structure_data = std::move(search.records);
  // The graph phase reads the records where they now live.
  StructureSearch graph{domain, std::move(search.nodes), {}, {}, {}, search.test_count, {}};
  graph.records.swap(domain->structure_data);
  ov_status_t status = orient_and_add_edges(graph);
  graph.records.swap(domain->structure_data);
  if (status != ov_error_none) domain->structure_data = {};
  return status;
}

double data_independency(const Domain *domain, const Node *a, const Node *b) noexcept {
  const EdgeTestRecord &record = domain->structure_data[pair_index(a, b)];
  return record.tests.empty() ? 1.0 : record.tests.front().p_value;
}

} // namespace orvel
