/* Prints, in hexadecimal floating point, the beliefs and the log probability of the evidence of a
 * network under each evidence set of a peer-results file (the "set ... ev NODE=STATE,..." lines),
 * in several ways of propagating: so that two builds of the library can be compared bit for bit
 * with diff (scripts/belief-check.sh).
 * Usage: belief_dump NET EVIDENCE
 * Passes, in order:
 *   plain     per set: retract, enter the set, propagate (sum, normal)
 *   memory    the same after ov_domain_save_to_memory
 *   grow      per set: retract, then enter the findings one at a time, propagating after each
 *   max       per set: retract, enter, propagate (max, normal), with table memory
 *   fast      per set: retract, enter, propagate (sum, fast retraction)
 *   likely    per set: the first finding as a likelihood (0.25 elsewhere), the rest hard */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "orvel.h"

#define MAXSETS 64
#define MAXEV 64
static char ev_node[MAXSETS][MAXEV][128], ev_state[MAXSETS][MAXEV][128];
static int ev_count[MAXSETS];

static int read_sets(const char *path) {
  FILE *f = fopen(path, "r");
  if (!f) {
    perror(path);
    exit(3);
  }
  static char line[1 << 16];
  int n = 0;
  while (fgets(line, sizeof line, f) && n < MAXSETS) {
    if (strncmp(line, "set ", 4) != 0) continue;
    char *ev = strstr(line, " ev ");
    if (!ev) continue;
    ev += 4;
    ev[strcspn(ev, "\r\n")] = 0;
    int k = 0;
    for (char *tok = strtok(ev, ","); tok && k < MAXEV; tok = strtok(NULL, ",")) {
      char *eq = strchr(tok, '=');
      if (!eq) continue;
      *eq = 0;
      snprintf(ev_node[n][k], 128, "%s", tok);
      snprintf(ev_state[n][k], 128, "%s", eq + 1);
      k++;
    }
    ev_count[n++] = k;
  }
  fclose(f);
  return n;
}

static void print_state(ov_domain_t d, const char *pass, int set, ov_status_t status) {
  printf("%s %d status %d %s", pass, set, (int)status, ov_error_name(ov_error_code()));
  if (status != 0) {
    printf("\n");
    return;
  }
  printf(" logpe %a\n", (double)ov_domain_get_log_normalization_constant(d));
  for (ov_node_t n = ov_domain_get_first_node(d); n; n = ov_node_get_next(n)) {
    if (ov_node_get_category(n) != ov_category_chance) continue;
    printf("%s", ov_node_get_name(n));
    ov_count_t ns = ov_node_get_number_of_states(n);
    for (ov_index_t q = 0; q < ns; q++) printf(" %a", (double)ov_node_get_belief(n, q));
    printf("\n");
  }
}

static ov_node_t node_of(ov_domain_t d, int set, int k, ov_index_t *state) {
  ov_node_t n = ov_domain_get_node_by_name(d, ev_node[set][k]);
  *state = n ? ov_node_get_state_index_from_label(n, ev_state[set][k]) : -1;
  if (!n || *state < 0) {
    fprintf(stderr, "set %d: unknown %s=%s\n", set, ev_node[set][k], ev_state[set][k]);
    exit(2);
  }
  return n;
}

static void run_pass(ov_domain_t d, const char *pass, int sets) {
  for (int s = 0; s < sets; s++) {
    ov_domain_retract_findings(d);
    ov_status_t status = 0;
    for (int k = 0; k < ev_count[s]; k++) {
      ov_index_t state;
      ov_node_t n = node_of(d, s, k, &state);
      if (strcmp(pass, "likely") == 0 && k == 0) {
        ov_count_t ns = ov_node_get_number_of_states(n);
        for (ov_index_t q = 0; q < ns; q++) ov_node_enter_finding(n, q, q == state ? 1.0f : 0.25f);
      } else {
        ov_node_select_state(n, state);
      }
      if (strcmp(pass, "grow") == 0 && k + 1 < ev_count[s]) {
        status = ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_normal);
        print_state(d, pass, s, status);
      }
    }
    if (strcmp(pass, "max") == 0)
      status = ov_domain_propagate(d, ov_equilibrium_max, ov_mode_normal);
    else if (strcmp(pass, "fast") == 0)
      status = ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_fast_retraction);
    else
      status = ov_domain_propagate(d, ov_equilibrium_sum, ov_mode_normal);
    print_state(d, pass, s, status);
  }
}

int main(int argc, char **argv) {
  if (argc < 3) {
    fprintf(stderr, "usage: %s NET EVIDENCE\n", argv[0]);
    return 1;
  }
  int sets = read_sets(argv[2]);
  const char *passes[] = {"plain", "memory", "grow", "max", "fast", "likely"};
  for (int p = 0; p < 6; p++) {
    ov_domain_t d = ov_net_parse_domain(argv[1], NULL, NULL);
    if (!d || ov_domain_compile(d) != 0) {
      fprintf(stderr, "%s: %s\n", argv[1], ov_error_name(ov_error_code()));
      return 2;
    }
    int memory = strcmp(passes[p], "memory") == 0 || strcmp(passes[p], "max") == 0;
    if (memory && ov_domain_save_to_memory(d) != 0) return 2;
    run_pass(d, passes[p], sets);
    ov_domain_delete(d);
  }
  return 0;
}
