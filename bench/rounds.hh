// Two sides measured against each other, pass by pass, in one run.
#ifndef BENCH_ROUNDS_HH
#define BENCH_ROUNDS_HH

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <time.h>

#include <algorithm>
#include <functional>
#include <vector>

namespace bench {

// What is measured; `before` and `after` are not.
struct Side {
  std::function<void()> run;
  std::function<void()> before = [] {};
  std::function<void()> after = [] {};
};

// Keeps freed memory in the process, for both sides: what one pass frees, the next one has without
// a page fault.
inline void keep_memory() {
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, 1 << 30);
  mallopt(M_TOP_PAD, 64 << 20);
}

inline double thread_seconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

// What a side freed is merged here and not in the next pass: taking things down is not measured.
inline void tidy_heap() {
  void* block = malloc(size_t{1} << 20);
  benchmark::DoNotOptimize(block);  // or the compiler leaves both calls out
  free(block);
}

inline double seconds_of(const Side& side) {
  side.before();
  tidy_heap();
  const double start = thread_seconds();
  side.run();
  const double end = thread_seconds();
  side.after();
  return end - start;
}

inline double median(std::vector<double> some) {
  std::nth_element(some.begin(), some.begin() + static_cast<ptrdiff_t>(some.size() / 2),
                   some.end());
  return some[some.size() / 2];
}

constexpr int kRounds = 15;
constexpr double kRoundSeconds = 0.02;  // of the slower side

// A benchmark of one iteration: as many passes a round as fill it, reference and library in turn.
// The counters hold the medians over the rounds, in nanoseconds for each of the `items` of a pass,
// and the median of the rounds' ratios.
inline void compare(benchmark::State& state, size_t items, const Side& library,
                    const Side& reference) {
  for (auto _ : state) {
    (void)seconds_of(library), (void)seconds_of(reference);  // what is made once is made
    const double pass = std::max({seconds_of(library), seconds_of(reference), 1e-7});
    const int passes = std::max(1, static_cast<int>(kRoundSeconds / pass));
    std::vector<double> library_seconds, reference_seconds, ratios;
    for (int round = 0; round < kRounds; ++round) {
      double spent[2] = {};
      for (int i = 0; i < passes; ++i) {
        spent[0] += seconds_of(reference);
        spent[1] += seconds_of(library);
      }
      reference_seconds.push_back(spent[0] / passes);
      library_seconds.push_back(spent[1] / passes);
      ratios.push_back(spent[1] / spent[0]);
    }
    const double count = static_cast<double>(items);
    state.SetIterationTime(median(library_seconds));
    state.counters["library"] = median(library_seconds) / count * 1e9;
    state.counters["reference"] = median(reference_seconds) / count * 1e9;
    state.counters["library/reference"] = median(ratios);
  }
}

}  // namespace bench

#endif
