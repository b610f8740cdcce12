// Arbitrary text read as a sparse listing of a PCU of mk43, and arbitrary leaf values written as
// one, against layouts made once. Reading ends in a configuration or in complaints that name a
// line and echo input without a raw control byte and without running long; a configuration read
// writes a canonical listing, and a change listing, that read back to the same values; and any
// values written read back to themselves.
//
// A "did you mean" search compares a name with every known one (thousands of paths and
// enumerants, milliseconds under the sanitizers), so the whole tile is read without hints, and
// the hints are fuzzed on a small layout of the tile's first leaves with a few enumerant names.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Accessors.h"
#include "Delta.h"
#include "Nearest.h"
#include "Sparse.h"
#include "Tile.h"
#include "compiler/arch_spec/ArchSpec.h"

namespace {

using namespace archspec;

struct Fixture {
  std::unique_ptr<TileRecord> pcu;
  NameResolver names;
  std::string header;
  Layout small;                    // the tile's first leaves, one after another
  NameResolver small_names;        // the tile's names, hints among a few of them
  std::vector<std::string> hints;  // those few
};

constexpr size_t kSmallLeaves = 24;

const Fixture& Pcu() {
  static const Fixture fixture = [] {
    zu::spec::ArchSpec::set_arch(zu::spec::ArchVersion::v3_0_0);
    Fixture f;
    f.pcu = TileRecord::Create(zu::spec::ArchVersion::v3_0_0, *FindTileType("pcu"));
    f.names = EnumerantResolver();
    f.header = f.pcu->ListingHeaderLine();

    std::vector<Leaf> leaves;
    uint32_t offset = 0;
    for (const Leaf& leaf : f.pcu->layout().leaves()) {
      if (leaves.size() == kSmallLeaves) break;
      leaves.push_back({leaf.path, offset, leaf.width, static_cast<uint32_t>(leaves.size()), {}});
      offset += leaf.width;
    }
    f.small = Layout("small_pcu", offset, std::move(leaves));
    for (const Accessor& accessor : AllAccessors()) {
      const std::string_view name = accessor.name;
      if (accessor.kind == AccessorKind::kEnum && name.rfind("stage_opcode_alu_op_", 0) == 0) {
        f.hints.emplace_back(name);
      }
    }
    f.small_names = [&hints = f.hints, names = f.names](std::string_view name, size_t leaf) {
      NamedValue named = names(name, leaf);
      if (named.nearest) {
        named.nearest = [&hints, key = std::string(name)] {
          NearestName nearest(key);
          for (const std::string& hint : hints) nearest.Offer(hint);
          return nearest.Best();
        };
      }
      return named;
    };
    return f;
  }();
  return fixture;
}

// The whole tile without hints; the small layout with two an input, enough to reach every path
// of the search.
constexpr ReportLimits kLimits{20, 0};
constexpr ReportLimits kSmallLimits{20, 2};

// The longest complaint: a path and a value, each echoed at most kEchoBytes and a length, with
// the words and a leaf's path around them.
constexpr size_t kLongestMessage = 4 * kEchoBytes + 512;

void CheckComplaints(const SparseResult& result, std::string_view text) {
  if (result.errors.size() > kLimits.max_errors + 1) std::abort();
  if (!result.ok() && result.values != std::vector<uint64_t>(result.values.size(), 0)) std::abort();
  size_t lines = 1;
  for (char c : text) lines += c == '\n';
  for (const Diagnostic& error : result.errors) {
    if (error.message.empty() || error.message.size() > kLongestMessage) std::abort();
    if (error.line == 0 || error.line > lines) std::abort();
    for (char c : error.message) {
      if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) std::abort();
    }
  }
}

// The values of a successful read read back from the canonical listing and from the listing of
// the change from the zero configuration.
void CheckWritten(const Layout& layout, const std::string& header,
                  const std::vector<uint64_t>& values) {
  const SparseResult canonical =
      ReadSparse(WriteSparse(layout, values, {header}), layout, nullptr, kLimits);
  if (!canonical.ok() || canonical.values != values) std::abort();
  if (!canonical.header.has_value() ||
      CheckListingHeader(canonical.header, "mk43", "pcu").has_value()) {
    std::abort();
  }
  const std::vector<uint64_t> zero(values.size(), 0);
  const SparseResult change =
      ReadSparse(WriteDelta(layout, CompareConfigurations(zero, values)), layout, nullptr, kLimits);
  if (!change.ok() || ApplyDelta(zero, change) != values) std::abort();
}

// A listing read against `layout`: complaints as they should be, or values that a line assigned
// and that the writers give back.
void CheckRead(std::string_view text, const Layout& layout, const NameResolver& names,
               const ReportLimits& limits, const std::string& header) {
  const SparseResult read = ReadSparse(text, layout, names, limits);
  CheckComplaints(read, text);
  (void)CheckListingHeader(read.header, "mk43", "pcu");
  if (!read.ok()) return;
  for (size_t i = 0; i < read.values.size(); ++i) {
    if (read.values[i] != 0 && !read.assigned[i]) std::abort();
  }
  CheckWritten(layout, header, read.values);
}

// Leaf values taken from the input, ten bytes a leaf: two pick the leaf, eight give the value,
// cut to the leaf's width.
std::vector<uint64_t> ValuesOf(const Layout& layout, const uint8_t* data, size_t size) {
  std::vector<uint64_t> values(layout.leaves().size(), 0);
  for (size_t at = 0; at + 10 <= size; at += 10) {
    const size_t leaf = (size_t{data[at]} << 8 | data[at + 1]) % values.size();
    uint64_t value = 0;
    for (size_t k = 2; k < 10; ++k) value = value << 8 | data[at + k];
    values[leaf] = value & MaxValue(layout.leaves()[leaf].width);
  }
  return values;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const Fixture& f = Pcu();
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  CheckRead(text, f.pcu->layout(), f.names, kLimits, f.header);
  CheckRead(text, f.small, f.small_names, kSmallLimits, f.header);
  // The writer on its own, with values that no listing had to spell.
  CheckWritten(f.pcu->layout(), f.header, ValuesOf(f.pcu->layout(), data, size));
  return 0;
}
