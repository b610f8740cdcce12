// What a port costs against a named decode of the same configuration.
//
// For each tile of mk44 (rye) two configurations: every leaf random bits (so that every leaf is
// listed, and most typed leaves hold codes of no name, each of which the report gives), and every
// typed leaf a named code of its type with every other leaf random (so that codes move by name).
// Each is ported to mk43 (ry); the counter "x_decode" is the port's time over that of the listing
// with names (WriteSparse with the Naming, as `decode --format sparse` writes it), timed in the
// same process right after the port's runs.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Configuration.h"
#include "Port.h"
#include "Sparse.h"
#include "Tile.h"

namespace {

using archspec::Configuration;

// Seconds of one named decode of `configuration`: the best of several timed batches.
double NamedDecodeSeconds(const Configuration& configuration) {
  double best = 1e9;
  for (int batch = 0; batch < 10; ++batch) {
    const int runs = 20;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < runs; ++i) {
      benchmark::DoNotOptimize(archspec::WriteSparse(configuration.layout(), configuration.values(),
                                                     {"h"}, false, &configuration.naming())
                                   .data());
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    best = std::min(best, took.count() / runs);
  }
  return best;
}

Configuration Random(const zu::spec::ArchVersion& version, const archspec::TileType& tile,
                     bool named) {
  Configuration configuration = *Configuration::Zero(version, tile);
  std::mt19937_64 random(configuration.layout().bits());
  const std::vector<archspec::Leaf>& leaves = configuration.layout().leaves();
  for (size_t i = 0; i < leaves.size(); ++i) {
    const archspec::Enumeration* type = configuration.naming().TypeOf(i);
    if (named && type != nullptr) {
      configuration.SetValue(i, type->names()[random() % type->names().size()].code);
    } else {
      configuration.SetValue(i, random() & archspec::MaxValue(leaves[i].width));
    }
  }
  return configuration;
}

void Register(const char* from, const char* to) {
  const zu::spec::ArchVersion source = *archspec::FindGeneration(from);
  const zu::spec::ArchVersion target = *archspec::FindGeneration(to);
  for (const archspec::TileType& tile : archspec::TileTypes()) {
    for (const bool named : {false, true}) {
      const auto configuration = std::make_shared<Configuration>(Random(source, tile, named));
      const std::string label = std::string(from) + "/" + tile.record + "/PortTo" + to +
                                (named ? "/NamedCodes" : "/RandomBits");
      benchmark::RegisterBenchmark(label.c_str(), [=](benchmark::State& state) {
        size_t lost = 0;
        for (auto _ : state) {
          const std::optional<archspec::PortResult> port = archspec::Port(*configuration, target);
          lost = port->report.lost.size();
          benchmark::DoNotOptimize(port->configuration.values().data());
        }
        state.counters["lost"] = static_cast<double>(lost);
        state.counters["x_decode"] = benchmark::Counter(
            NamedDecodeSeconds(*configuration),
            benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
      });
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  Register("mk44", "mk43");
  Register("mk43", "mk44");
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
