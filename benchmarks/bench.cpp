// What the records and the constants interface cost.
//
// Every record benchmark reports its speed in bits per second and, as "x_baseline", its time
// relative to one plain pass over the same text (counting its '1' characters), measured in the same
// process right after the benchmark's own runs.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Configuration.h"
#include "Names.h"
#include "RecordCatalog.h"
#include "RuntimeRegisters.h"
#include "Sparse.h"
#include "Tile.h"
#include "TreeText.h"
#include "Writes.h"
#include "compiler/arch_spec/ArchSpec.h"
#include "compiler/arch_spec/gen/ArchConstants.h"

namespace {

using namespace zu::spec;

using archspec::RecordClass;

std::string RandomBits(size_t n) {
  std::mt19937_64 random(n);
  std::string bits(n, '0');
  for (char& c : bits) c = (random() & 1) ? '1' : '0';
  return bits;
}

// The plain pass that the records are measured against.
size_t CountOnes(const std::string& bits) {
  size_t ones = 0;
  for (const char c : bits) ones += c == '1';
  return ones;
}

// Seconds of one CountOnes over `bits`: the best of several timed batches.
double BaselineSeconds(const std::string& bits) {
  double best = 1e9;
  for (int batch = 0; batch < 20; ++batch) {
    const int runs = 200;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < runs; ++i) {
      std::string const* text = &bits;
      benchmark::DoNotOptimize(text);
      benchmark::DoNotOptimize(CountOnes(*text));
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    best = std::min(best, took.count() / runs);
  }
  return best;
}

// Reports the counters of a record benchmark over `text`. The plain pass is timed right after the
// operation's runs, so that both see the machine at the same speed (a shared virtual machine's
// speed drifts over seconds).
void Report(benchmark::State& state, const std::string& text) {
  const double baseline = BaselineSeconds(text);
  const size_t bits = text.size();
  state.counters["bits/s"] =
      benchmark::Counter(static_cast<double>(bits), benchmark::Counter::kIsIterationInvariantRate);
  // elapsed / (iterations * baseline): how many plain passes one operation costs.
  state.counters["x_baseline"] = benchmark::Counter(
      baseline, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// Times `operation` alone as the iteration's time (for benchmarks with manual time).
template <class Operation>
void TimeAlone(benchmark::State& state, Operation&& operation) {
  const auto start = std::chrono::steady_clock::now();
  operation();
  benchmark::ClobberMemory();
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  state.SetIterationTime(took.count());
}

void RegisterTile(const RecordClass& tile) {
  const auto bits = std::make_shared<std::string>(RandomBits(tile.bits));
  const auto make = tile.make;
  const size_t n = tile.bits;

  benchmark::RegisterBenchmark((tile.label() + "/Baseline").c_str(), [=](benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(CountOnes(*bits));
    Report(state, *bits);
  });
  benchmark::RegisterBenchmark((tile.label() + "/Parse").c_str(), [=](benchmark::State& state) {
    auto record = make();
    for (auto _ : state) {
      size_t position = 0;
      record->Parse(*bits, &position);
      benchmark::DoNotOptimize(position);
    }
    Report(state, *bits);
  });
  benchmark::RegisterBenchmark((tile.label() + "/Build").c_str(), [=](benchmark::State& state) {
    auto record = make();
    size_t position = 0;
    record->Parse(*bits, &position);
    auto builder = std::make_unique<ConfigBuilder>();
    for (auto _ : state) {
      builder->advance(-builder->cursor());
      record->Build(*builder);
      benchmark::ClobberMemory();
    }
    Report(state, *bits);
  });
  benchmark::RegisterBenchmark((tile.label() + "/BuildToBytes").c_str(),
                               [=](benchmark::State& state) {
                                 auto record = make();
                                 size_t position = 0;
                                 record->Parse(*bits, &position);
                                 for (auto _ : state) {
                                   auto builder = std::make_unique<ConfigBuilder>();
                                   record->Build(*builder);
                                   builder->advance(static_cast<int64_t>((8 - n % 8) % 8));
                                   benchmark::DoNotOptimize(builder->to_bytes());
                                 }
                                 Report(state, *bits);
                               });
  benchmark::RegisterBenchmark((tile.label() + "/Bytes2Bits").c_str(),
                               [=](benchmark::State& state) {
                                 auto record = make();
                                 size_t position = 0;
                                 record->Parse(*bits, &position);
                                 ConfigBuilder builder;
                                 record->Build(builder);
                                 builder.advance(static_cast<int64_t>((8 - n % 8) % 8));
                                 const std::vector<uint8_t> bytes = builder.to_bytes();
                                 for (auto _ : state) {
                                   std::string text;
                                   bytes2bits(bytes, &text);
                                   benchmark::DoNotOptimize(text.data());
                                 }
                                 Report(state, *bits);
                               });
  benchmark::RegisterBenchmark((tile.label() + "/ToString").c_str(), [=](benchmark::State& state) {
    auto record = make();
    size_t position = 0;
    record->Parse(*bits, &position);
    for (auto _ : state) {
      std::string text;
      record->ToString(0, &text);
      benchmark::DoNotOptimize(text.data());
    }
    Report(state, *bits);
  });
  benchmark::RegisterBenchmark((tile.label() + "/Walk").c_str(), [=](benchmark::State& state) {
    auto record = make();
    size_t position = 0;
    record->Parse(*bits, &position);
    uint64_t sum = 0;
    const std::function<void(const BitsIntegerBase&)> visit = [&sum](const BitsIntegerBase& leaf) {
      sum += leaf.ToNumber();
    };
    const BaseConstruct& view = *record;
    for (auto _ : state) view.Walk(visit);
    benchmark::DoNotOptimize(sum);
    Report(state, *bits);
  });
  // The cold paths are timed around the operation alone (manual time): making a fresh table and
  // releasing a result stay outside, without the cost of pausing the benchmark's own timers.
  benchmark::RegisterBenchmark((tile.label() + "/Register").c_str(), [=](benchmark::State& state) {
    for (auto _ : state) {
      // A fresh table: no entries, and no buckets kept from the last round.
      decltype(BaseConstruct::external_storage_)().swap(BaseConstruct::external_storage_);
      auto record = make();
      TimeAlone(state, [&] {
        UniqueId next = 0;
        record->SetUniqueId(next);
        uint32_t reg = 0;
        record->SetExternalStorage("tile", nullptr, 0, reg);
      });
    }
    Report(state, *bits);
  })->UseManualTime();
  // The metadata operations of a registered record; `operation` times what it measures.
  const auto registered = [=](benchmark::State& state, auto operation) {
    BaseConstruct::external_storage_.clear();
    auto record = make();
    size_t position = 0;
    record->Parse(*bits, &position);
    UniqueId next = 0;
    record->SetUniqueId(next);
    uint32_t reg = 0;
    record->SetExternalStorage("tile", nullptr, 0, reg);
    for (auto _ : state) operation(state, *record);
    Report(state, *bits);
  };
  benchmark::RegisterBenchmark((tile.label() + "/CollectFields").c_str(), registered,
                               [](benchmark::State& state, const BaseConstruct& record) {
                                 std::vector<FieldMetadata> fields;
                                 TimeAlone(state, [&] { record.CollectFields(fields, false, 0); });
                               })
      ->UseManualTime();
  benchmark::RegisterBenchmark((tile.label() + "/CollectPatches").c_str(), registered,
                               [](benchmark::State& state, const BaseConstruct& record) {
                                 std::vector<PatchMetadata> patches;
                                 TimeAlone(state, [&] {
                                   record.CollectPatches(patches, 7, zu::optional<uint32_t>(),
                                                         zu::optional<uint32_t>());
                                 });
                               })
      ->UseManualTime();
  benchmark::RegisterBenchmark((tile.label() + "/ToStringRegistered").c_str(), registered,
                               [](benchmark::State& state, const BaseConstruct& record) {
                                 std::string text;
                                 TimeAlone(state, [&] { record.ToString(0, &text); });
                               })
      ->UseManualTime();
  // What the table's and the results' types make every implementation pay, whatever its code: a
  // fresh table's entry for each id (a node each, and a name as long as the real one), and a copy
  // of the CollectFields result (a string each).
  benchmark::RegisterBenchmark((tile.label() + "/RegisterFloor").c_str(),
                               [=](benchmark::State& state) {
                                 BaseConstruct::external_storage_.clear();
                                 auto record = make();
                                 UniqueId next = 0;
                                 record->SetUniqueId(next);
                                 uint32_t reg = 0;
                                 record->SetExternalStorage("tile", nullptr, 0, reg);
                                 std::vector<std::pair<UniqueId, std::string>> names;
                                 for (const auto& [id, entry] : BaseConstruct::external_storage_) {
                                   names.emplace_back(id, entry.name);
                                 }
                                 for (auto _ : state) {
                                   decltype(BaseConstruct::external_storage_) table;
                                   TimeAlone(state, [&] {
                                     table.reserve(names.size());
                                     for (const auto& [id, name] : names) table[id].name = name;
                                   });
                                 }
                                 Report(state, *bits);
                               })
      ->UseManualTime();
  benchmark::RegisterBenchmark((tile.label() + "/CollectFieldsFloor").c_str(), registered,
                               [](benchmark::State& state, const BaseConstruct& record) {
                                 std::vector<FieldMetadata> made;
                                 record.CollectFields(made, false, 0);
                                 std::vector<FieldMetadata> fields;
                                 TimeAlone(state, [&] { fields = made; });
                               })
      ->UseManualTime();
  // Name() of every leaf, as a caller that walks a registered record asks it.
  benchmark::RegisterBenchmark(
      (tile.label() + "/Names").c_str(), registered,
      [](benchmark::State&, const BaseConstruct& record) {
        size_t length = 0;
        record.Walk([&length](const BitsIntegerBase& leaf) { length += leaf.Name().size(); });
        benchmark::DoNotOptimize(length);
      });
}

void Accessors() {
  ArchSpec::set_arch(ArchVersion::v4_0_0);
  const ArchConstants* constants = arch_constants();
  benchmark::RegisterBenchmark("constants/scalar", [constants](benchmark::State& state) {
    for (auto _ : state) {
      const ArchConstants* c = constants;
      benchmark::DoNotOptimize(c);
      benchmark::DoNotOptimize(c->ag_addr_width());
    }
  });
  benchmark::RegisterBenchmark("constants/enumerant", [constants](benchmark::State& state) {
    for (auto _ : state) {
      const ArchConstants* c = constants;
      benchmark::DoNotOptimize(c);
      benchmark::DoNotOptimize(c->stage_opcode_alu_op_add().ToNumber());
    }
  });
  benchmark::RegisterBenchmark("constants/container", [constants](benchmark::State& state) {
    for (auto _ : state) {
      const ArchConstants* c = constants;
      benchmark::DoNotOptimize(c);
      benchmark::DoNotOptimize(c->agcu_rows().size());
    }
  });
}

// The faces' work on a configuration of each tile of the first generation of its records: the
// sparse listing with codes in hexadecimal and with names (whose cost over the first is the price
// of names), and check. Every leaf holds random bits, so that every leaf is listed.
void Listings() {
  for (const zu::spec::GenerationRow& row : zu::spec::GenerationTable()) {
    if (!row.selectable || row.version.minor != 0) continue;  // mk42 has mk41's records
    for (const archspec::TileType& tile : archspec::TileTypes()) {
      const auto record = std::shared_ptr<archspec::TileRecord>(
          archspec::TileRecord::Create(row.version, tile).release());
      if (record == nullptr) continue;
      const auto bits = std::make_shared<std::string>(RandomBits(record->layout().bits()));
      const auto values = std::make_shared<std::vector<uint64_t>>(record->ReadBits(*bits));
      const archspec::Naming* names = archspec::Naming::Of(*record);
      const std::string label = std::string(row.records) + "/" + tile.record;
      const auto listing = [=](benchmark::State& state, const archspec::Naming* naming) {
        for (auto _ : state) {
          benchmark::DoNotOptimize(
              archspec::WriteSparse(record->layout(), *values, {"h"}, false, naming).data());
        }
        Report(state, *bits);
      };
      benchmark::RegisterBenchmark((label + "/SparseDecode").c_str(), listing, nullptr);
      benchmark::RegisterBenchmark((label + "/SparseDecodeNamed").c_str(), listing, names);
      benchmark::RegisterBenchmark((label + "/Check").c_str(), [=](benchmark::State& state) {
        for (auto _ : state) benchmark::DoNotOptimize(names->Check(*values).size());
        Report(state, *bits);
      });
      // The tree with names as the tool prints it, written from the layout, whole and cut to
      // what is set.
      const auto tree = [=](benchmark::State& state, bool nonzero) {
        for (auto _ : state) {
          benchmark::DoNotOptimize(
              archspec::WriteTree(record->layout(), *values, names, nonzero).data());
        }
        Report(state, *bits);
      };
      benchmark::RegisterBenchmark((label + "/Tree").c_str(), tree, false);
      benchmark::RegisterBenchmark((label + "/TreeNonzero").c_str(), tree, true);
      // The library's print of the registered record, codes alone: what the tree with names cost
      // at least while it was made from this print's text.
      benchmark::RegisterBenchmark((label + "/TreeRegistered").c_str(),
                                   [=](benchmark::State& state) {
                                     for (auto _ : state) {
                                       benchmark::DoNotOptimize(record->WriteTree(*values).data());
                                     }
                                     Report(state, *bits);
                                   });
      // A layout made from its leaves, as a record class's is once per process (the walk of the
      // registered record that finds the leaves stays outside).
      benchmark::RegisterBenchmark((label + "/Layout").c_str(), [=](benchmark::State& state) {
        for (auto _ : state) {
          std::vector<archspec::Leaf> leaves = record->layout().leaves();
          TimeAlone(state, [&] {
            const archspec::Layout layout(tile.record, record->layout().bits(), std::move(leaves));
            benchmark::DoNotOptimize(layout.leaves().data());
          });
        }
        Report(state, *bits);
      })->UseManualTime();
      // What linking the leaves to their run-time registers adds to a layout's construction, as
      // the tooling makes a layout: the link alone, against /Layout.
      benchmark::RegisterBenchmark((label + "/LinkRuntime").c_str(), [=](benchmark::State& state) {
        for (auto _ : state) {
          std::vector<archspec::Leaf> leaves = record->layout().leaves();
          archspec::Layout layout(tile.record, record->layout().bits(), std::move(leaves));
          TimeAlone(state, [&] {
            layout.LinkRuntimeRegisters(
                archspec::RuntimeRegistersOf(record->version(), record->tile()));
          });
          benchmark::DoNotOptimize(layout.leaves().data());
        }
        Report(state, *bits);
      })->UseManualTime();
    }
  }
}

}  // namespace

// The largest tile (the AGCU) of each records namespace, every leaf random bits, with the text of
// its bits: what the configuration benchmarks below work on.
struct RandomAgcu {
  std::string label;  // "ry/AGCU_Config_struct"
  std::shared_ptr<std::string> bits;
  archspec::Configuration configuration;
};
std::vector<RandomAgcu> RandomAgcus() {
  std::vector<RandomAgcu> out;
  for (const zu::spec::GenerationRow& row : zu::spec::GenerationTable()) {
    if (!row.selectable || row.version.minor != 0) continue;  // mk42 has mk41's records
    const archspec::TileType& tile = *archspec::FindTileType("agcu");
    std::optional<archspec::Configuration> zero = archspec::Configuration::Zero(row.version, tile);
    if (!zero.has_value()) continue;
    const auto bits = std::make_shared<std::string>(RandomBits(zero->layout().bits()));
    archspec::ReadRequest request;
    request.form = archspec::Form::kBits;
    request.generation = row.product_name;
    request.tile = tile.name;
    out.push_back({std::string(row.records) + "/" + tile.record, bits,
                   *archspec::Configuration::Read(*bits, request).configuration});
  }
  return out;
}

// A configuration read as the faces read it (Configuration::Read, the form told from the data)
// from each form that names its tile: a listing with names and its JSON, of the largest tile of
// each records namespace. Every leaf holds random bits, so that every leaf is listed.
void Reads() {
  for (const RandomAgcu& agcu : RandomAgcus()) {
    const auto bits = agcu.bits;
    const auto read = [bits](benchmark::State& state, const std::string& data) {
      for (auto _ : state) {
        benchmark::DoNotOptimize(
            archspec::Configuration::Read(data, {}).configuration->values().data());
      }
      Report(state, *bits);
    };
    benchmark::RegisterBenchmark((agcu.label + "/ReadListing").c_str(), read,
                                 agcu.configuration.ToListing());
    benchmark::RegisterBenchmark((agcu.label + "/ReadJson").c_str(), read,
                                 agcu.configuration.ToJson());
  }
}

// The register writes between two configurations of the largest tile of each records namespace,
// already read into values, that differ in a few leaves (half of them written by a run-time
// register), and applying those writes: in plain passes over the configuration's bits.
void Writes() {
  for (const RandomAgcu& agcu : RandomAgcus()) {
    const auto bits = agcu.bits;
    const std::string& label = agcu.label;
    const auto from = std::make_shared<archspec::Configuration>(agcu.configuration);
    auto to = std::make_shared<archspec::Configuration>(*from);
    const std::vector<archspec::Leaf>& leaves = from->layout().leaves();
    std::mt19937_64 random(7);
    for (int linked = 0, other = 0; linked < 4 || other < 4;) {
      const size_t leaf = random() % leaves.size();
      int& count = leaves[leaf].runtime() ? linked : other;
      if (count == 4) continue;
      ++count;
      to->SetValue(leaf, to->value(leaf) ^ 1);
    }
    benchmark::RegisterBenchmark((label + "/Writes").c_str(), [=](benchmark::State& state) {
      for (auto _ : state) {
        benchmark::DoNotOptimize(archspec::WritesBetween(*from, *to, {0, 0x400}).writes.data());
      }
      Report(state, *bits);
    });
    const archspec::RegisterWrites writes = archspec::WritesBetween(*from, *to, {0, 0x400});
    std::vector<archspec::ReadWrite> list;
    for (const archspec::RegisterWrite& write : writes.writes) {
      list.emplace_back();
      list.back().patch = write.patch;
    }
    benchmark::RegisterBenchmark((label + "/ApplyWrites").c_str(), [=](benchmark::State& state) {
      archspec::Configuration target = *from;
      for (auto _ : state) {
        benchmark::DoNotOptimize(archspec::ApplyWrites(target, list, 0x400).data());
      }
      Report(state, *bits);
    });
  }
}

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  for (const RecordClass& tile : archspec::TileRecordClasses()) RegisterTile(tile);
  Accessors();
  Listings();
  Reads();
  Writes();
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
