// The threading contract: after set_arch (and the first ArchSpec::get on the choosing thread), the
// constants, features and constraints are read from any thread; distinct records are parsed, built,
// walked and printed unregistered in parallel. Registration and the table of field locations stay
// on one thread. Run under ThreadSanitizer by the `tsan` preset.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "RecordCatalog.h"
#include "compiler/arch_spec/ArchSpec.h"
#include "compiler/arch_spec/ConfigBuilder.h"
#include "compiler/arch_spec/gen/ArchConstants.h"

namespace zu::spec {
namespace {

constexpr int kThreads = 8;

std::string RandomBits(size_t n, unsigned seed) {
  std::mt19937_64 random(seed);
  std::string bits(n, '0');
  for (char& c : bits) c = (random() & 1) ? '1' : '0';
  return bits;
}

template <class Work>
void OnThreads(Work work) {
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) threads.emplace_back(work, t);
  for (std::thread& thread : threads) thread.join();
}

TEST(ThreadsTest, AnswersAreReadFromAnyThread) {
  ArchSpec::reset();
  ArchSpec::set_arch(ArchVersion::v4_0_0);
  ArchSpec::get();  // built on the thread that chose the generation
  std::vector<uint64_t> seen(kThreads);
  OnThreads([&seen](int t) {
    uint64_t sum = 0;
    for (int round = 0; round < 200; ++round) {
      const ArchConstants* c = arch_constants();
      sum += c->ag_addr_width() + c->stage_opcode_alu_op_add().ToNumber();
      sum += c->agcu_rows().size() + c->pcu_macc_datatype().size();  // first calls race here
      sum += arch_features()->fp8_support() + arch_constraints()->pcu_requires_context_done();
    }
    seen[static_cast<size_t>(t)] = sum;
  });
  for (uint64_t sum : seen) EXPECT_EQ(sum, seen[0]);
  ArchSpec::reset();
}

TEST(ThreadsTest, DistinctRecordsWorkInParallelUnregistered) {
  const std::vector<archspec::RecordClass> tiles = archspec::TileRecordClasses();
  std::atomic<int> mismatches{0};
  OnThreads([&](int t) {
    // Each thread takes every tile in its own order, so that all of them are at work at once.
    for (size_t k = 0; k < tiles.size(); ++k) {
      const archspec::RecordClass& tile = tiles[(k + static_cast<size_t>(t)) % tiles.size()];
      const std::string bits = RandomBits(tile.bits, static_cast<unsigned>(t * 100 + k));
      auto record = tile.make();
      size_t position = 0;
      record->Parse(bits, &position);
      auto builder = std::make_unique<ConfigBuilder>();
      record->Build(*builder);
      if (builder->to_string() != bits) ++mismatches;
      uint64_t ones = 0;
      const BaseConstruct& view = *record;
      view.Walk([&ones](const BitsIntegerBase& leaf) { ones += leaf.ToNumber() != 0; });
      std::string text;
      record->ToString(0, &text);
      if (text.empty() || ones == 0) ++mismatches;
    }
  });
  EXPECT_EQ(mismatches.load(), 0);
}

}  // namespace
}  // namespace zu::spec
