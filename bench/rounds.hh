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
constexpr double kWarmSeconds = 0.005;  // of a side before each of its passes
constexpr double kPassSeconds = 0.01;

// Seconds of a sweep of each side.
struct Round {
  double library = 0;
  double reference = 0;
};

// The mean of as many sweeps as take so long.
inline double sweeps_for(double least_seconds, const Side& side) {
  double sum = 0;
  int sweeps = 0;
  for (; sum < least_seconds; ++sweeps) sum += seconds_of(side);
  return sum / sweeps;
}

inline double pass_of(const Side& side) {
  (void)sweeps_for(kWarmSeconds, side);  // until what the other side left is gone
  return sweeps_for(kPassSeconds, side);
}

inline Round pass_by_pass(const Side& library, const Side& reference) {
  Round round;
  round.reference = pass_of(reference);
  round.library = pass_of(library);
  return round;
}

inline Round sweep_by_sweep(const Side& library, const Side& reference) {
  Round sum;
  int sweeps = 0;
  for (; std::max(sum.library, sum.reference) < kPassSeconds; ++sweeps) {
    sum.reference += seconds_of(reference);
    sum.library += seconds_of(library);
  }
  return {sum.library / sweeps, sum.reference / sweeps};
}

// A benchmark of one iteration: rounds of both sides. The counters hold the medians over the
// rounds, in nanoseconds for each of the `items` of a sweep, and the median of the rounds' ratios.
inline void compare(benchmark::State& state, size_t items, const Side& library,
                    const Side& reference, Caches caches = Caches::kOwn) {
  for (auto _ : state) {
    (void)seconds_of(library), (void)seconds_of(reference);  // what is made once is made
    std::vector<double> library_seconds, reference_seconds, ratios;
    for (int i = 0; i < kRounds; ++i) {
      const Round round =
          (caches == Caches::kOwn ? pass_by_pass : sweep_by_sweep)(library, reference);
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
