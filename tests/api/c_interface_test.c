/* A plain C program that uses the library the way a C user would: create,
 * name, fill, read back and delete, checking every result. */
#include <orvel.h>
#include <stdio.h>
#include <string.h>

static int failures = 0;

#define CHECK(condition)                                                                                               \
  do {                                                                                                                 \
    if (!(condition)) {                                                                                                \
      fprintf(stderr, "%s:%d: check failed: %s\n", __FILE__, __LINE__, #condition);                                    \
      ++failures;                                                                                                      \
    }                                                                                                                  \
  } while (0)

int main(void) {
  ov_domain_t domain;
  ov_node_t node;
  ov_table_t table;
  ov_number_t *data;

  CHECK(ov_error_code() == ov_error_none);
  CHECK(strcmp(ov_error_name(ov_error_twice), "twice") == 0);
  CHECK(strcmp(ov_error_name(48), "no_such_error") == 0);

  domain = ov_new_domain();
  CHECK(domain != NULL);
  node = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
  CHECK(node != NULL);
  CHECK(ov_node_set_name(node, "rain") == ov_error_none);
  CHECK(ov_node_set_name(node, "not valid") == ov_error_invalid_name);
  CHECK(ov_error_code() == ov_error_invalid_name);
  CHECK(ov_domain_get_node_by_name(domain, "rain") == node);
  CHECK(ov_node_get_number_of_states(node) == 1);

  table = ov_node_get_table(node);
  CHECK(table != NULL);
  CHECK(ov_table_get_size(table) == 1);
  data = ov_table_get_data(table);
  CHECK(data != NULL && data[0] == 1.0f);

  CHECK(ov_domain_new_node(NULL, ov_category_chance, ov_kind_discrete) == NULL);
  CHECK(ov_error_code() == ov_error_usage);
  CHECK(ov_node_get_kind(NULL) == ov_kind_error);

  CHECK(ov_domain_delete(domain) == ov_error_none);
  CHECK(ov_error_code() == ov_error_none);

  if (failures != 0) {
    fprintf(stderr, "%d checks failed\n", failures);
    return 1;
  }
  printf("c interface: all checks passed\n");
  return 0;
}
