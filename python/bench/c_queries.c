/* The C baseline of python/bench/bench_batch.py: answers each case of a data
 * file as one query (the case's findings, sum propagation, every belief of
 * the listed nodes read) in a loop, and prints the median time per query in
 * microseconds over the runs.
 *
 *   orvel_c_queries NET DATA RUNS NODE...
 */
#include <orvel.h>

#include <stdio.h>
#include <stdlib.h>
#include <time.h>

static double now(void) {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return (double)t.tv_sec + 1e-9 * (double)t.tv_nsec;
}

static int compare(const void *a, const void *b) {
  double x = *(const double *)a, y = *(const double *)b;
  return (x > y) - (x < y);
}

int main(int argc, char **argv) {
  if (argc < 5) {
    fprintf(stderr, "usage: orvel_c_queries NET DATA RUNS NODE...\n");
    return 1;
  }
  ov_domain_t d = ov_net_parse_domain(argv[1], NULL, NULL);
  if (d == NULL || ov_domain_compile(d) != ov_error_none || ov_domain_save_to_memory(d) != ov_error_none ||
      ov_domain_parse_cases(d, argv[2], NULL, NULL) != ov_error_none) {
    fprintf(stderr, "%s\n", ov_error_description(ov_error_code()));
    return 2;
  }
  int runs = atoi(argv[3]);
  int count = argc - 4;
  ov_node_t *nodes = malloc(sizeof(ov_node_t) * (size_t)count);
  for (int i = 0; i < count; ++i) nodes[i] = ov_domain_get_node_by_name(d, argv[4 + i]);
  ov_count_t cases = ov_domain_get_number_of_cases(d);
  double *times = malloc(sizeof(double) * (size_t)runs);
  double sink = 0;
  for (int r = 0; r < runs; ++r) {
    double start = now();
    for (ov_index_t c = 0; c < cases; ++c) {
      ov_domain_retract_findings(d);
      ov_domain_enter_case(d, c);
      if (ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_normal) != ov_error_none) continue;
      for (int i = 0; i < count; ++i) {
        ov_count_t states = ov_node_get_number_of_states(nodes[i]);
        for (ov_index_t s = 0; s < states; ++s) sink += ov_node_get_belief(nodes[i], s);
      }
    }
    times[r] = (now() - start) / (double)cases;
  }
  qsort(times, (size_t)runs, sizeof(double), compare);
  printf("%.3f\n", 1e6 * times[runs / 2]);
  fprintf(stderr, "checksum %g\n", sink);
  free(times);
  free(nodes);
  ov_domain_delete(d);
  return 0;
}
