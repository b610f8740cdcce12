// The constructs that configuration records are made of.
//
// A construct has an exact place in the bit string of a tile's configuration. Leaves
// (BitsInteger<N>) hold one unsigned field; PackedArray<N, B> holds N small fields compactly;
// ArrayLE<N, T> holds N constructs, with element 0 at the little end of the bits; the generated
// records hold their fields in table order.
//
// Every construct can be read from the text form of a configuration (`Parse`), written into a
// ConfigBuilder
// (`Build`), printed (`ToString`), walked leaf by leaf (`Walk`) and asked where its leaves lie
// (`CollectFields`, `CollectPatches`). Names, offsets and registers live apart from the objects, in
// the one process-wide table `BaseConstruct::external_storage_`, keyed by each construct's 16-bit
// unique id.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "compiler/arch_spec/BitIO.h"
#include "compiler/arch_spec/ConfigBuilder.h"
#include "compiler/arch_spec/Logging.h"
#include "zu/Optional.h"

namespace zu::spec {

using UniqueId = short;

class BitsIntegerBase;
namespace constructs_internal {
class Lines;
struct Cursor;
}  // namespace constructs_internal

// Where one part (at most 32 bits) of a leaf stands, counted in 512-bit words.
struct FieldMetadata {
  std::string name;       // Name() of the leaf; both parts of a wide leaf have the same name
  uint32_t bit = 0;       // bit position inside its 512-bit word
  uint16_t width = 0;     // bits of this part, 1 to 32
  uint32_t word = 0;      // index of the 512-bit word
  bool flag = false;      // the caller's flag, passed through
  uint32_t reg = 0;       // register index of this part
  bool reg_flag = false;  // whether the register is writable
};

// One register write: the caller's id, a register index and a 32-bit value.
struct PatchMetadata {
  uint32_t id = 0;
  uint32_t reg = 0;
  uint32_t value = 0;
};

// One entry of the table of field locations.
struct ExternalStorage {
  std::string name;               // own name; empty for arrays
  zu::optional<UniqueId> parent;  // enclosing construct; empty for the root
  uint16_t offset = 0;            // first bit, from the start of the top-level bit string
  bool writable = false;          // set by SetRegisterLo / SetRegisterHi
  uint32_t reg_lo = 0;            // register of the low 32 bits
  zu::optional<uint32_t> reg_hi;  // register of the bits from 32 up; leaves above 32 bits only
};

// The root of everything that has an exact place in a configuration bit string.
class BaseConstruct {
 public:
  BaseConstruct() = default;
  // A copy is a twin: it keeps the original's id, and so its place in the table.
  BaseConstruct(const BaseConstruct&) = default;
  // Assignment transfers values only: the target keeps its own id and place.
  BaseConstruct& operator=(const BaseConstruct&) { return *this; }
  virtual ~BaseConstruct();

  // Reads this construct from `bits` at `*pos` and advances `*pos` by SizeInBits(). Checks nothing.
  virtual void Parse(const std::string& bits, size_t* pos) = 0;
  // Writes this construct at the builder's cursor and moves the cursor on.
  virtual void Build(ConfigBuilder& builder) const = 0;
  virtual size_t SizeInBits() const = 0;
  // Appends the text form at nesting depth `indent`.
  virtual void ToString(size_t indent, std::string* out) const = 0;
  // Calls `fn` on each leaf in bit order; the first form may change them.
  virtual void Walk(const std::function<void(BitsIntegerBase&)>& fn) = 0;
  virtual void Walk(const std::function<void(const BitsIntegerBase&)>& fn) const = 0;
  // One PatchMetadata per register word of each leaf, in bit order.
  virtual void CollectPatches(std::vector<PatchMetadata>& out, uint32_t id,
                              zu::optional<uint32_t> base, zu::optional<uint32_t> value) const = 0;
  // One FieldMetadata per part of each leaf, in bit order.
  virtual void CollectFields(std::vector<FieldMetadata>& out, bool flag, int32_t base) const = 0;
  // The bit position of this construct in the top-level bit string.
  virtual uint16_t Offset() const;
  // Numbers this sub-tree from `next`; on return `next` is the largest id given out.
  virtual void SetUniqueId(UniqueId& next);
  // Records each construct's name, parent, offset and registers in the table.
  virtual void SetExternalStorage(const std::string& name, BaseConstruct* parent, size_t offset,
                                  uint32_t& reg) = 0;

  // The dotted path of this construct, root first, e.g. "pmu.PMU_shared.orMask0[3]".
  std::string Name() const;
  uint16_t OffsetImpl() const;
  UniqueId GetUniqueId() const;
  bool HasUniqueId() const { return unique_id_.has_value(); }

  // The table of field locations of the whole process. It is never emptied.
  static std::unordered_map<UniqueId, ExternalStorage> external_storage_;

  // The entry of `id`, or null if the table has none. Nothing is inserted.
  static ExternalStorage* FindEntry(UniqueId id) {
    const auto found = external_storage_.find(id);
    return found == external_storage_.end() ? nullptr : &found->second;
  }
  // The entry of `id`, which must exist: a lookup that finds none leaves an empty entry and fails
  // with "External storage not initialized".
  static ExternalStorage& StoredEntryOf(UniqueId id, const zu::SourceLocation& location);

 protected:
  // The entry of this construct, which must exist: a lookup that finds none leaves an empty entry
  // and fails with "External storage not initialized".
  ExternalStorage& StoredEntry(zu::SourceLocation location = zu::SourceLocation::current()) const;
  // Fails with "Offset out of bounds (...)" unless `offset` fits 16 bits.
  static void CheckOffset(size_t offset,
                          zu::SourceLocation location = zu::SourceLocation::current());
  // The id of `parent`, which must have one.
  static UniqueId ParentId(const BaseConstruct& parent);
  // The registration of a record: checks the offset and the id, and makes the record's entry. False
  // if the entry was there already, in which case the record and its sub-tree are left as they are.
  bool RegisterRecord(const std::string& name, BaseConstruct* parent, size_t offset,
                      zu::SourceLocation location = zu::SourceLocation::current());
  // The registration of an array: if it has an id, its entry (made if needed) takes the parent's
  // id; an array's entry has no name and no offset of its own.
  void RegisterArray(BaseConstruct* parent);

  // The rules of leaves of `width` bits, whether BitsInteger members or the elements of a packed
  // array (which exist as leaves only for the moment of an operation: these rules are what their
  // temporary leaves would do). A packed array hands its elements over together; a member leaf goes
  // through its own routines (BitsIntegerBase), which share these rules.
  //
  // The FieldMetadata of `count` leaves whose ids rise by one from `first_id`, in that order.
  static void AppendLeavesFields(std::vector<FieldMetadata>& out, UniqueId first_id, size_t count,
                                 size_t width, bool flag, int32_t base,
                                 const zu::SourceLocation& location);
  // The PatchMetadata of `count` leaves whose ids rise by one from `first_id`, holding `values`.
  static void AppendLeavesPatches(std::vector<PatchMetadata>& out, UniqueId first_id, size_t count,
                                  size_t width, const uint64_t* values, uint32_t patch_id,
                                  const zu::optional<uint32_t>& base,
                                  const zu::optional<uint32_t>& value,
                                  const zu::SourceLocation& location);
  // The caller has checked the offset.
  static void RegisterLeaf(UniqueId id, const std::string& name, BaseConstruct* parent,
                           size_t offset, size_t width, uint32_t& reg);
  // The elements of a packed array of `count` elements, `width` bits each, under `parent`: element
  // count-1 first, with id `first_id`, at `offset`. Element i is named `name` + "[i]", or, with
  // `columns` above 0, `name` + "[i / columns][i % columns]". Each element checks its own offset.
  static void RegisterElements(UniqueId first_id, size_t count, const std::string& name,
                               size_t columns, BaseConstruct* parent, size_t offset, size_t width,
                               uint32_t& reg, const zu::SourceLocation& location);

  zu::optional<UniqueId> unique_id_;
};

// A leaf: one unsigned field of a fixed width.
class BitsIntegerBase : public BaseConstruct {
 public:
  void ToString(size_t indent, std::string* out) const override;
  void Walk(const std::function<void(BitsIntegerBase&)>& fn) override;
  void Walk(const std::function<void(const BitsIntegerBase&)>& fn) const override;
  void CollectPatches(std::vector<PatchMetadata>& out, uint32_t id, zu::optional<uint32_t> base,
                      zu::optional<uint32_t> value) const override;
  void CollectFields(std::vector<FieldMetadata>& out, bool flag, int32_t base) const override;
  void SetExternalStorage(const std::string& name, BaseConstruct* parent, size_t offset,
                          uint32_t& reg) override;

  // Stores `value`, which must fit the width ("value will not fit in bit field").
  virtual BitsIntegerBase& operator=(uint64_t value) = 0;
  // The value, zero-extended.
  virtual uint64_t ToNumber() const = 0;

  // Reads SizeInBits() characters from `*pos`, most significant first, and advances `*pos`; the
  // leaf is not touched. Characters past the end of `bits` read as '0'.
  uint64_t ParseImpl(const std::string& bits, size_t* pos) const;
  // Appends the leaf's line: "[0x012c:7-8]/40 0x1234", or "[0x0000]/0 0xa" before registration.
  void ToStringImpl(std::string* out) const;
  // Fails unless `offset` < `size`.
  void range_check(size_t offset, size_t size) const;
  template <class T>
  T verify_fits(T value, size_t bits,
                zu::SourceLocation location = zu::SourceLocation::current()) const {
    check(bits >= 64 || (static_cast<uint64_t>(value) >> bits) == 0,
          "value will not fit in bit field", location);
    return value;
  }

  void CollectFieldsImpl(std::vector<FieldMetadata>& out, bool flag, int32_t base) const;
  void CollectPatchesImpl(std::vector<PatchMetadata>& out, uint32_t id, zu::optional<uint32_t> base,
                          zu::optional<uint32_t> value) const;
  void SetExternalStorageImpl(const std::string& name, BaseConstruct* parent, size_t offset,
                              uint32_t& reg);
  uint32_t RegisterLoImpl() const;
  uint32_t RegisterHiImpl() const;
  void SetRegisterLo(uint32_t reg, bool writable);
  void SetRegisterHi(uint32_t reg, bool writable);

 private:
  friend class RecordBase;
  // What a caller that knows the leaf's width (a record, for its leaf fields, which it also prints
  // from the leaf's id and value) needs to collect the fields of and collect the patches of the
  // leaf, without the virtual calls of the general operations.
  void AppendFieldsOf(size_t width, std::vector<FieldMetadata>& out, bool flag, int32_t base) const;
  void AppendPatchesOf(size_t width, std::vector<PatchMetadata>& out, uint32_t id,
                       const zu::optional<uint32_t>& base,
                       const zu::optional<uint32_t>& value) const;
};

namespace constructs_internal {

// Sets `path` to the path of the construct whose entry is `entry`, as Name() gives it.
void AssignPath(std::string& path, const ExternalStorage& entry);

// The printed form: a construct at nesting depth d stands 2 * d blanks in.
constexpr size_t Indentation(size_t depth) { return 2 * depth; }

// The elements of a packed array that one step of a metadata operation or a print takes at once.
inline constexpr size_t kRun = 64;
// The length of the run that starts at element `done` of `n`.
constexpr size_t RunAt(size_t done, size_t n) { return n - done < kRun ? n - done : kRun; }

// A leaf to print: its name in a record (null for a leaf printed alone) and the name's length, id,
// width and value.
// Plain members without initializers, so that a run's array of them costs nothing until filled.
struct LeafLine {
  const char* name;
  size_t name_size;
  const zu::optional<UniqueId>* id;
  size_t width;
  uint64_t value;
};

// The lines of the printed form, gathered in a buffer on the stack and handed to the string a
// buffer at a time: when the next line might not fit, on Flush, and when the Lines ends. Whoever
// writes to the string directly (a nested construct's ToString) flushes first. Every line is
// "<blanks><head><separator>" and what follows it; a head too long for the buffer goes to the
// string directly.
class Lines {
 public:
  explicit Lines(std::string* out) : out_(out) {}
  ~Lines() { Flush(); }
  Lines(const Lines&) = delete;
  Lines& operator=(const Lines&) = delete;

  // "<blanks><head><separator>", the separator ending the line or leading to what follows.
  void Text(size_t blanks, std::string_view head, std::string_view separator = {});
  // The lines of `count` (at most kRun) leaves: for a leaf with a name (a record's field)
  // "<blanks><name> = ", then the leaf's place and value, "[0x012c:7-8]/40 0x1234" (the high
  // register only above 32 bits), or "[0x0000]/0 0xa" without an id or an entry.
  void Leaves(size_t blanks, const LeafLine* leaves, size_t count);
  // The lines of `count` (at most kRun) elements of an array, each "<blanks><index>: " and the
  // leaf's text of `values[k]`, the first numbered `first_index`. Without `first_id` the elements
  // have no ids; with it, the ids fall by one per element from `first_id`.
  void Elements(size_t blanks, size_t first_index, const uint64_t* values, size_t count,
                const zu::optional<UniqueId>& first_id, size_t width);
  // "<blanks><index>: <tail>": the head of an element that is a record or an array.
  void Index(size_t blanks, size_t index, std::string_view tail);
  // "]/<bits>" on a line of its own at `depth`: the end of an array.
  void ArrayEnd(size_t depth, size_t bits);
  void Flush();

 private:
  static constexpr size_t kRoom = 4096;
  // Where the buffer's text ends, as a cursor to write on, and the text written up to it.
  Cursor Resume();
  void Pause(const Cursor& line);
  // "<blanks><head><separator>" at `line`, with room for `after` more characters behind it.
  void Head(Cursor& line, size_t blanks, std::string_view head, std::string_view separator,
            size_t after);

  std::string* out_;
  size_t size_ = 0;
  char text_[kRoom];
};

// Room for `more` elements (of a vector or a string), growing geometrically so that results
// appended a few at a time, or by one record after another, do not copy the buffer each time.
template <class Container>
void ReserveMore(Container& c, size_t more) {
  const size_t wanted = c.size() + more;
  if (wanted > c.capacity()) [[unlikely]]
    c.reserve(wanted > 2 * c.capacity() ? wanted : 2 * c.capacity());
}

// A metadata pass: a record's CollectFields or CollectPatches, with the passes of the records
// inside it. The outermost pass keeps the path of each parent whose children it names, built once
// from the table, so that a leaf's Name() is its parent's path and its own name. Nothing changes
// the table's names or parents during a pass; the kept paths go with the outermost pass. A pass
// belongs to the thread that runs it, as the table does while it runs.
class MetadataPass {
 public:
  MetadataPass();
  ~MetadataPass();
  MetadataPass(const MetadataPass&) = delete;
  MetadataPass& operator=(const MetadataPass&) = delete;
  // Whether this is the pass that the caller started, not one nested in it.
  bool outermost() const { return outermost_; }

  // The outermost pass running on this thread, or null outside a pass.
  static MetadataPass* Running();
  // The path of the construct `id` that its children extend: Name() less the '.' that ends the
  // name of a construct without a name of its own.
  const std::string& PathOf(UniqueId id);

 private:
  bool outermost_;
  std::unordered_map<UniqueId, std::string> paths_;
  // The last path asked for: the leaves of a record or an array ask for the same one in a row.
  UniqueId last_id_ = 0;
  const std::string* last_path_ = nullptr;
};

// The width of a leaf type, 0 for any other construct.
template <class T>
inline constexpr int kLeafWidth = 0;

template <int N>
using LeafStorage = std::conditional_t<
    (N <= 8), uint8_t,
    std::conditional_t<(N <= 16), uint16_t, std::conditional_t<(N <= 32), uint32_t, uint64_t>>>;
}  // namespace constructs_internal

// A leaf of N bits (1 to 64).
template <int N>
class BitsInteger;
template <int N>
inline constexpr int constructs_internal::kLeafWidth<BitsInteger<N>> = N;

template <int N>
class BitsInteger final : public BitsIntegerBase {
  static_assert(N >= 1 && N <= 64, "a leaf has 1 to 64 bits");

 public:
  static constexpr size_t kSizeInBits = N;
  static constexpr uint64_t kMask = N == 64 ? ~uint64_t{0} : (uint64_t{1} << N) - 1;

  BitsInteger() : value_(0) {}
  // A leaf holding `value`, which must fit.
  explicit BitsInteger(uint64_t value) : value_(0) { *this = value; }
  BitsInteger(const BitsInteger&) = default;
  BitsInteger& operator=(const BitsInteger&) = default;

  // ParseImpl reads exactly N bits; the mask tells the compiler that they fit the storage.
  void Parse(const std::string& bits, size_t* pos) override {
    value_ = ParseImpl(bits, pos) & kMask;
  }
  void Build(ConfigBuilder& builder) const override {
    builder.ensure_room(N);
    builder.put(value_, N);
  }
  size_t SizeInBits() const override { return N; }
  BitsInteger& operator=(uint64_t value) override {
    value_ = verify_fits(value, N) & kMask;
    return *this;
  }
  uint64_t ToNumber() const override { return value_; }
  // Reads like a number, so that an answer of the constants interface can be assigned to a field.
  operator uint64_t() const { return value_; }  // NOLINT: implicit by design

  // Stores a value that the caller knows to fit, cut to N bits, without the check.
  void SetRaw(uint64_t value) { value_ = value & kMask; }

  void ReadBits(BitReader& in) { value_ = in.take(N); }
  void WriteBits(BitWriter& out) const { out.put(value_, N); }

 private:
  constructs_internal::LeafStorage<N> value_ : N;
};

namespace constructs_internal {
// Storage of packed elements of B bits: the smallest unit of 8, 16, 32 or 64 bits that holds two of
// them (64 bits for B above 32), `per` elements a unit from its low bits up; elements never cross a
// unit.
template <int B>
struct PackedUnit {
  using Type =
      std::conditional_t<(2 * B <= 8), uint8_t,
                         std::conditional_t<(2 * B <= 16), uint16_t,
                                            std::conditional_t<(2 * B <= 32), uint32_t, uint64_t>>>;
  static constexpr size_t kBits = 8 * sizeof(Type);
  static constexpr size_t kPer = kBits / B;
  static constexpr uint64_t kMask = B == 64 ? ~uint64_t{0} : (uint64_t{1} << B) - 1;
  static constexpr size_t Units(size_t n) { return (n + kPer - 1) / kPer; }

  static uint64_t Get(const Type* data, size_t i) {
    return (static_cast<uint64_t>(data[i / kPer]) >> ((i % kPer) * B)) & kMask;
  }
  static void Set(Type* data, size_t i, uint64_t value) {
    const size_t shift = (i % kPer) * B;
    const uint64_t unit = data[i / kPer];
    data[i / kPer] = static_cast<Type>((unit & ~(kMask << shift)) | ((value & kMask) << shift));
  }
};
}  // namespace constructs_internal

// N elements of B bits in compact storage (N given by GetSize()). Element N-1 stands first in the
// bit string, element 0 last. An element exists as a leaf object only for the moment of an
// operation: a temporary BitsInteger<B>, with the element's id if the array has one.
template <int B>
class PackedArrayBase : public BaseConstruct {
 protected:
  using Unit = constructs_internal::PackedUnit<B>;

 public:
  using Storage = typename Unit::Type;

  // Every unit is rewritten, spare bits included, so nothing of the former content remains.
  void Parse(const std::string& bits, size_t* pos) override {
    BitReader in(bits, *pos, SizeInBits());
    ReadElements(GetData(), GetSize(), in);
    *pos += SizeInBits();
  }
  void Build(ConfigBuilder& builder) const override {
    builder.ensure_room(static_cast<int64_t>(GetSize()) * B);
    BitWriter out(builder);
    WriteElements(GetData(), GetSize(), out);
  }
  size_t SizeInBits() const override { return GetSize() * B; }
  void ToString(size_t indent, std::string* out) const override {
    constructs_internal::Lines lines(out);
    lines.Text(0, "[\n");
    AppendRowText(lines, constructs_internal::Indentation(indent + 1), 0, GetSize());
    lines.ArrayEnd(indent, SizeInBits());
  }
  void Walk(const std::function<void(BitsIntegerBase&)>& fn) override {
    if (!fn) throw std::bad_function_call();
    for (size_t i = GetSize(); i-- > 0;) {
      BitsInteger<B> element = Element(i);
      fn(element);
      Unit::Set(GetData(), i, element.ToNumber());
    }
  }
  void Walk(const std::function<void(const BitsIntegerBase&)>& fn) const override {
    if (!fn) throw std::bad_function_call();
    for (size_t i = GetSize(); i-- > 0;) fn(Element(i));
  }
  void CollectPatches(std::vector<PatchMetadata>& out, uint32_t id, zu::optional<uint32_t> base,
                      zu::optional<uint32_t> value) const override {
    const zu::SourceLocation location = zu::SourceLocation::current();
    const size_t n = GetSize();
    if (n == 0) return;
    const UniqueId first = IdOfElement(n, n - 1, location);
    const Storage* data = GetData();
    uint64_t values[constructs_internal::kRun];
    for (size_t done = 0; done < n;) {
      const size_t run = constructs_internal::RunAt(done, n);
      for (size_t k = 0; k < run; ++k) values[k] = Unit::Get(data, n - 1 - done - k);
      AppendLeavesPatches(out, static_cast<UniqueId>(first + static_cast<UniqueId>(done)), run, B,
                          values, id, base, value, location);
      done += run;
    }
  }
  void CollectFields(std::vector<FieldMetadata>& out, bool flag, int32_t base) const override {
    const zu::SourceLocation location = zu::SourceLocation::current();
    const size_t n = GetSize();
    if (n == 0) return;
    AppendLeavesFields(out, IdOfElement(n, n - 1, location), n, B, flag, base, location);
  }
  uint16_t Offset() const override {
    if (GetSize() == 0) return 0;
    const zu::SourceLocation location = zu::SourceLocation::current();
    return StoredEntryOf(IdOfElement(GetSize(), GetSize() - 1, location), location).offset;
  }
  void SetUniqueId(UniqueId& next) override {
    unique_id_ = next;
    next = static_cast<UniqueId>(next + static_cast<UniqueId>(GetSize()));
  }
  void SetExternalStorage(const std::string& name, BaseConstruct* parent, size_t offset,
                          uint32_t& reg) override {
    RegisterArray(parent);
    const zu::SourceLocation location = zu::SourceLocation::current();
    const size_t n = GetSize();
    if (n == 0) return;
    // An element checks its offset before its id, as a leaf does.
    CheckOffset(offset, location);
    RegisterElements(IdOfElement(n, n - 1, location), n, name, Columns(), this, offset, B, reg,
                     location);
  }

  virtual Storage* GetData() = 0;
  virtual const Storage* GetData() const = 0;
  virtual size_t GetSize() const = 0;

  // Element access with the checks of a leaf: the index must lie below the size, the value must fit
  // B bits.
  uint64_t get(size_t i) const {
    range_check(i);
    return Unit::Get(GetData(), i);
  }
  void set(size_t i, uint64_t value) {
    range_check(i);
    Unit::Set(GetData(), i, BitsInteger<B>(value).ToNumber());
  }

 protected:
  // Element i's id, if the array has one: the array's id + N - i, so that ids follow bit order.
  zu::optional<UniqueId> ElementId(size_t i) const {
    if (!unique_id_.has_value()) return {};
    return static_cast<UniqueId>(*unique_id_ + static_cast<UniqueId>(GetSize() - i));
  }
  // The id of element i of the array's `n`, which the array must have ("Unique ID not
  // initialized").
  UniqueId IdOfElement(size_t n, size_t i, const zu::SourceLocation& location) const {
    check(unique_id_.has_value(), "Unique ID not initialized", location);
    return static_cast<UniqueId>(*unique_id_ + static_cast<UniqueId>(n - i));
  }
  // The temporary leaf of element i: its value, and its id if the array has one.
  BitsInteger<B> Element(size_t i) const {
    BitsInteger<B> element;
    element.SetRaw(Unit::Get(GetData(), i));
    if (zu::optional<UniqueId> id = ElementId(i); id.has_value()) element.SetUniqueId(*id);
    return element;
  }
  // The elements of a row of an array of rows; 0 for a flat array, whose elements are named "[i]"
  // rather than "[row][column]".
  virtual size_t Columns() const { return 0; }
  // The lines of elements `first` to `first + count - 1`, numbered from 0, each after `blanks`.
  void AppendRowText(constructs_internal::Lines& lines, size_t blanks, size_t first,
                     size_t count) const {
    const Storage* data = GetData();
    uint64_t values[constructs_internal::kRun];
    for (size_t done = 0; done < count;) {
      const size_t run = constructs_internal::RunAt(done, count);
      for (size_t k = 0; k < run; ++k) values[k] = Unit::Get(data, first + done + k);
      lines.Elements(blanks, done, values, run, ElementId(first + done), B);
      done += run;
    }
  }
  void range_check(size_t i) const { BitsInteger<B>().range_check(i, GetSize()); }
  // The fast paths of records. The bits of a unit, read most significant first, are its elements
  // from the highest down, which is the order of the bit string: so a whole unit moves at once, the
  // last unit (which may hold fewer elements) first.
  static void ReadElements(Storage* data, size_t n, BitReader& in) {
    size_t unit = Unit::Units(n);
    if (const size_t rest = n % Unit::kPer; rest != 0) {
      --unit;
      data[unit] = static_cast<Storage>(in.take(static_cast<int>(rest * B)));
    }
    while (unit-- > 0) data[unit] = static_cast<Storage>(in.take(static_cast<int>(Unit::kPer * B)));
  }
  static void WriteElements(const Storage* data, size_t n, BitWriter& out) {
    size_t unit = Unit::Units(n);
    if (const size_t rest = n % Unit::kPer; rest != 0) {
      --unit;
      out.put(data[unit], static_cast<int>(rest * B));
    }
    while (unit-- > 0) out.put(data[unit], static_cast<int>(Unit::kPer * B));
  }
};

template <size_t N, int B>
class PackedArray final : public PackedArrayBase<B> {
  using Unit = typename PackedArrayBase<B>::Unit;

 public:
  using Storage = typename Unit::Type;
  static constexpr size_t kSizeInBits = N * B;

  size_t SizeInBits() const override { return kSizeInBits; }
  Storage* GetData() override { return data_; }
  const Storage* GetData() const override { return data_; }
  size_t GetSize() const override { return N; }

  void ReadBits(BitReader& in) { PackedArrayBase<B>::ReadElements(data_, N, in); }
  void WriteBits(BitWriter& out) const { PackedArrayBase<B>::WriteElements(data_, N, out); }

 private:
  Storage data_[Unit::Units(N)] = {};
};

// N constructs of type T; element 0 stands last in the bit string. Operations run from element N-1
// down to element 0, but ToString prints element 0 first.
template <class T>
class ArrayLEBase : public BaseConstruct {
 public:
  void Parse(const std::string& bits, size_t* pos) override {
    auto [first, last] = Range();
    while (last != first) (--last)->Parse(bits, pos);
  }
  void Build(ConfigBuilder& builder) const override {
    auto [first, last] = Range();
    while (last != first) (--last)->Build(builder);
  }
  size_t SizeInBits() const override {
    size_t total = 0;
    auto [first, last] = Range();
    for (; first != last; ++first) total += first->SizeInBits();
    return total;
  }
  void ToString(size_t indent, std::string* out) const override {
    constructs_internal::Lines lines(out);
    lines.Text(0, "[\n");
    auto [first, last] = Range();
    for (size_t i = 0; first + i != last; ++i) {
      lines.Index(constructs_internal::Indentation(indent + 1), i, {});
      lines.Flush();
      first[i].ToString(indent + 1, out);
    }
    lines.ArrayEnd(indent, SizeInBits());
  }
  void Walk(const std::function<void(BitsIntegerBase&)>& fn) override {
    auto [first, last] = Range();
    while (last != first) (--last)->Walk(fn);
  }
  void Walk(const std::function<void(const BitsIntegerBase&)>& fn) const override {
    auto [first, last] = Range();
    while (last != first) (--last)->Walk(fn);
  }
  void CollectPatches(std::vector<PatchMetadata>& out, uint32_t id, zu::optional<uint32_t> base,
                      zu::optional<uint32_t> value) const override {
    auto [first, last] = Range();
    while (last != first) (--last)->CollectPatches(out, id, base, value);
  }
  void CollectFields(std::vector<FieldMetadata>& out, bool flag, int32_t base) const override {
    auto [first, last] = Range();
    while (last != first) (--last)->CollectFields(out, flag, base);
  }
  uint16_t Offset() const override { return (Range().second - 1)->Offset(); }
  void SetUniqueId(UniqueId& next) override {
    unique_id_ = next;
    auto [first, last] = Range();
    while (last != first) {
      ++next;
      (--last)->SetUniqueId(next);
    }
  }
  void SetExternalStorage(const std::string& name, BaseConstruct* parent, size_t offset,
                          uint32_t& reg) override {
    RegisterArray(parent);
    auto [first, last] = Range();
    for (size_t i = static_cast<size_t>(last - first); i-- > 0;) {
      first[i].SetExternalStorage(name + "[" + std::to_string(i) + "]", this, offset, reg);
      offset += first[i].SizeInBits();
    }
  }

  virtual size_t Length() const = 0;
  virtual std::pair<T*, T*> Range() = 0;
  virtual std::pair<const T*, const T*> Range() const = 0;
};

// N constructs of type T (a record or another ArrayLE).
template <size_t N, class T>
class ArrayLE final : public ArrayLEBase<T> {
  static_assert(N >= 1, "an array has at least one element");

 public:
  static constexpr size_t kSizeInBits = N * T::kSizeInBits;

  void Parse(const std::string& bits, size_t* pos) override {
    BitReader in(bits, *pos, kSizeInBits);
    ReadBits(in);
    *pos += kSizeInBits;
  }
  void Build(ConfigBuilder& builder) const override {
    builder.ensure_room(kSizeInBits);
    BitWriter out(builder);
    WriteBits(out);
  }
  size_t SizeInBits() const override { return kSizeInBits; }
  size_t Length() const override { return N; }
  std::pair<T*, T*> Range() override { return {elements_, elements_ + N}; }
  std::pair<const T*, const T*> Range() const override { return {elements_, elements_ + N}; }

  // Element access; the index must lie below N.
  T& operator[](size_t i) {
    CheckIndex(i);
    return elements_[i];
  }
  const T& operator[](size_t i) const {
    CheckIndex(i);
    return elements_[i];
  }
  T* begin() { return elements_; }
  T* end() { return elements_ + N; }
  const T* begin() const { return elements_; }
  const T* end() const { return elements_ + N; }
  static constexpr size_t size() { return N; }

  void ReadBits(BitReader& in) {
    for (size_t i = N; i-- > 0;) elements_[i].ReadBits(in);
  }
  void WriteBits(BitWriter& out) const {
    for (size_t i = N; i-- > 0;) elements_[i].WriteBits(out);
  }

 private:
  static void CheckIndex(size_t i) {
    check(i < N, "Index {} out of range for an array of {} elements", i, N);
  }

  T elements_[N];
};

// N rows of M elements of B bits, stored flat as one packed array of N*M elements: element [i][j]
// is flat element i*M + j, and no padding stands between rows. It has one table entry; its leaves
// are named "name[i][j]".
template <size_t N, size_t M, int B>
class ArrayLE<N, PackedArray<M, B>> final : public PackedArrayBase<B> {
  using Unit = typename PackedArrayBase<B>::Unit;

 public:
  using Storage = typename Unit::Type;
  static constexpr size_t kSizeInBits = N * M * B;

  size_t SizeInBits() const override { return kSizeInBits; }
  void ToString(size_t indent, std::string* out) const override {
    using constructs_internal::Indentation;
    constructs_internal::Lines lines(out);
    lines.Text(0, "[\n");
    for (size_t i = 0; i < N; ++i) {
      lines.Index(Indentation(indent + 1), i, "[\n");
      this->AppendRowText(lines, Indentation(indent + 2), i * M, M);
      lines.ArrayEnd(indent + 1, M * B);
    }
    lines.ArrayEnd(indent, kSizeInBits);
  }
  Storage* GetData() override { return data_; }
  const Storage* GetData() const override { return data_; }
  size_t GetSize() const override { return N * M; }

  // Element access with the checks of a leaf.
  uint64_t get(size_t i, size_t j) const {
    CheckRow(i, j);
    return PackedArrayBase<B>::get(i * M + j);
  }
  void set(size_t i, size_t j, uint64_t value) {
    CheckRow(i, j);
    PackedArrayBase<B>::set(i * M + j, value);
  }
  using PackedArrayBase<B>::get;
  using PackedArrayBase<B>::set;

  void ReadBits(BitReader& in) { PackedArrayBase<B>::ReadElements(data_, N * M, in); }
  void WriteBits(BitWriter& out) const { PackedArrayBase<B>::WriteElements(data_, N * M, out); }

 protected:
  size_t Columns() const override { return M; }

 private:
  static void CheckRow(size_t i, size_t j) {
    BitsInteger<B>().range_check(i, N);
    BitsInteger<B>().range_check(j, M);
  }

  Storage data_[Unit::Units(N * M)] = {};
};

// Appends the text form of `bytes` to `out`: declared with ConfigBuilder, defined with the
// constructs.
void bytes2bits(const std::vector<uint8_t>& bytes, std::string* out);

}  // namespace zu::spec
