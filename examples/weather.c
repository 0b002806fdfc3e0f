/* A first look at the library through its C interface: a small weather
 * network with named and labelled nodes, states, a filled table and
 * attributes, and the way every call reports failure. */
#include <orvel.h>
#include <stdio.h>

/* Reports a failed call with the error the library recorded for it. */
static int failed(const char *what) {
  ov_error_t code = ov_error_code();
  fprintf(stderr, "%s failed: %s: %s\n", what, ov_error_name(code), ov_error_description(code));
  return 1;
}

/* Prints a node's table: its nodes, then one line per configuration. */
static void print_table(ov_node_t node) {
  ov_table_t table = ov_node_get_table(node);
  ov_node_t *nodes = ov_table_get_nodes(table);
  const ov_number_t *data = ov_table_get_data(table);
  ov_count_t size = ov_table_get_size(table), i;
  int k;

  printf("table of %s over", ov_node_get_name(node));
  for (k = 0; nodes[k] != NULL; ++k) printf(" %s", ov_node_get_name(nodes[k]));
  printf(" (%lld entries)\n", (long long)size);
  for (i = 0; i < size; ++i) printf("  [%lld] %.3f\n", (long long)i, data[i]);
}

int main(void) {
  ov_domain_t domain;
  ov_node_t weather, umbrella, comfort, n;
  ov_attribute_t attribute;
  ov_number_t *data;
  ov_count_t i;

  domain = ov_new_domain();
  if (domain == NULL) return failed("ov_new_domain");

  /* Nodes: a chance node for tomorrow's weather, a decision and a utility. */
  weather = ov_domain_new_node(domain, ov_category_chance, ov_kind_discrete);
  umbrella = ov_domain_new_node(domain, ov_category_decision, ov_kind_discrete);
  comfort = ov_domain_new_node(domain, ov_category_utility, ov_kind_discrete);
  if (weather == NULL || umbrella == NULL || comfort == NULL) return failed("ov_domain_new_node");

  /* Names must have the form of C identifiers and be unique in the domain. */
  if (ov_node_set_name(weather, "Weather") != 0) return failed("ov_node_set_name");
  if (ov_node_set_name(umbrella, "Umbrella") != 0) return failed("ov_node_set_name");
  if (ov_node_set_name(umbrella, "take umbrella") != 0)
    printf("\"take umbrella\" refused: %s\n", ov_error_name(ov_error_code()));
  if (ov_node_set_name(umbrella, "Weather") != 0)
    printf("\"Weather\" refused for a second node: %s\n", ov_error_name(ov_error_code()));
  ov_node_set_label(weather, "Tomorrow's weather");

  /* A node without a name is given one when it is first asked for it. */
  printf("nodes, newest first:");
  for (n = ov_domain_get_first_node(domain); n != NULL; n = ov_node_get_next(n)) printf(" %s", ov_node_get_name(n));
  printf("\n");
  printf("lookup of \"Weather\": %s\n", ov_domain_get_node_by_name(domain, "Weather") == weather ? "found" : "missing");

  /* States: a new discrete node has one state; label it. */
  if (ov_node_set_state_label(weather, 0, "any") != 0) return failed("ov_node_set_state_label");
  printf("%s has %lld state(s); state 0 is \"%s\", found again as index %lld\n", ov_node_get_name(weather),
         (long long)ov_node_get_number_of_states(weather), ov_node_get_state_label(weather, 0),
         (long long)ov_node_get_state_index_from_label(weather, "any"));

  /* Tables: a chance node's table starts at 1, a utility table at 0. Writes
   * to the data array change the table; touching it tells a compiled
   * domain to reload it. */
  data = ov_table_get_data(ov_node_get_table(comfort));
  if (data == NULL) return failed("ov_table_get_data");
  for (i = 0; i < ov_table_get_size(ov_node_get_table(comfort)); ++i) data[i] = 10.0f;
  ov_node_touch_table(comfort);
  print_table(weather);
  print_table(comfort);
  if (ov_node_get_table(umbrella) == NULL) printf("a decision has no table: %s\n", ov_error_name(ov_error_code()));

  /* Attributes: key and value pairs kept for the application, newest first. */
  ov_domain_set_attribute(domain, "author", "orvel example");
  ov_domain_set_attribute(domain, "created", "today");
  ov_node_set_attribute(weather, "unit", "none");
  for (attribute = ov_domain_get_first_attribute(domain); attribute != NULL;
       attribute = ov_attribute_get_next(attribute))
    printf("domain attribute %s = %s\n", ov_attribute_get_key(attribute), ov_attribute_get_value(attribute));
  printf("Weather attribute unit = %s\n", ov_node_get_attribute(weather, "unit"));

  /* Deleting the domain releases its nodes and tables. */
  if (ov_domain_delete(domain) != 0) return failed("ov_domain_delete");
  return 0;
}
