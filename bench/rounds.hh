// Two sides measured against each other, in turn, in one run.
#ifndef BENCH_ROUNDS_HH
#define BENCH_ROUNDS_HH

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <time.h>

#include <algorithm>
#include <functional>
#include <vector>

namespace bench {

// A sweep: what is measured is `run`, `before` and `after` are not.
struct Side {
  std::function<void()> run;
  std::function<void()> before = [] {};
  std::function<void()> after = [] {};
};

// Keeps freed memory in the process, for both sides: what one sweep frees, the next one has without
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

// What a side freed is merged here and not in the next sweep: taking things down is not measured.
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

// What a sweep finds in the caches: what its own side's sweep before left there, or the other
// side's.
enum class Caches { kOwn, kOthers };

constexpr int kRounds = 15;
constexpr double kPassSeconds = 0.01;  // of a side in a round

inline int sweeps_in_pass(double sweep_seconds) {
  return std::max(1, static_cast<int>(kPassSeconds / std::max(sweep_seconds, 1e-7)));
}

// Seconds of a sweep of each side.
struct Round {
  double library = 0;
  double reference = 0;
};

// The mean of a pass. The first sweep is not counted: it finds what the other side left.
inline double pass_of(const Side& side, int sweeps) {
  (void)seconds_of(side);
  double sum = 0;
  for (int i = 0; i < sweeps; ++i) sum += seconds_of(side);
  return sum / sweeps;
}

inline Round pass_by_pass(const Side& library, const Side& reference, const Round& sweep) {
  Round round;
  round.reference = pass_of(reference, sweeps_in_pass(sweep.reference));
  round.library = pass_of(library, sweeps_in_pass(sweep.library));
  return round;
}

inline Round sweep_by_sweep(const Side& library, const Side& reference, const Round& sweep) {
  const int sweeps = sweeps_in_pass(std::max(sweep.library, sweep.reference));
  Round round;
  for (int i = 0; i < sweeps; ++i) {
    round.reference += seconds_of(reference) / sweeps;
    round.library += seconds_of(library) / sweeps;
  }
  return round;
}

// A benchmark of one iteration: rounds of both sides. The counters hold the medians over the
// rounds, in nanoseconds for each of the `items` of a sweep, and the median of the rounds' ratios.
inline void compare(benchmark::State& state, size_t items, const Side& library,
                    const Side& reference, Caches caches = Caches::kOwn) {
  for (auto _ : state) {
    (void)seconds_of(library), (void)seconds_of(reference);  // what is made once is made
    const Round sweep = {seconds_of(library), seconds_of(reference)};
    std::vector<double> library_seconds, reference_seconds, ratios;
    for (int i = 0; i < kRounds; ++i) {
      const Round round =
          (caches == Caches::kOwn ? pass_by_pass : sweep_by_sweep)(library, reference, sweep);
      library_seconds.push_back(round.library);
      reference_seconds.push_back(round.reference);
      ratios.push_back(round.library / round.reference);
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
