# Answers that read like a datasheet: enumeration types, names of other kinds, --match, units.
# Included by CMakeLists.txt beside it, with its archspec_expect and archspec_shell.

# A type lists its names and codes, on every generation as the constants answer them.
add_test(NAME archspec.cli.types_answered
  COMMAND Python3::Interpreter ${CMAKE_CURRENT_SOURCE_DIR}/types_answered.py
          $<TARGET_FILE:archspec>)
archspec_expect(get_type 0 "^stage_opcode_t: enumeration type, 29 names on mk44 \\(rye\\)$"
  get --arch mk44 stage_opcode_t)
archspec_expect(get_type_inferred 0 "^  pcu_udcxbar_enum_pcu_udcxbar_ne_scalar_in_1 = 60  # inferred$"
  get --arch mk44 pcu_udcxbar_enum_t)
archspec_expect(get_type_takers 0 "^taken by pcu: simd_last_stage_structIn\\[\\]\\[\\]\\.stage_opcode \\(4 leaves\\), simd_structIn\\[\\]\\[\\]\\.stage_opcode \\(20 leaves\\)$"
  get --arch mk44 stage_opcode_t)
# A name of another kind is told for what it is.
archspec_expect(get_field 1 "^archspec: error: stage_opcode names a field of pcu on mk44 \\(rye\\) \\(simd_last_stage_structIn\\[\\]\\[\\]\\.stage_opcode and 1 more\\), not an accessor$"
  get --arch mk44 stage_opcode)
archspec_expect(get_field_path 1 "names a field of pcu on mk43 \\(ry\\) \\(simd_structIn\\[\\]\\[\\]\\.stage_opcode\\), not an accessor$"
  get --arch mk43 "simd_structIn[0][1].stage_opcode")
archspec_expect(get_tile 1 "^archspec: error: pmu names a tile, not an accessor \\(its fields: archspec layout --arch mk43 pmu\\)$"
  get --arch mk43 pmu)
archspec_expect(get_type_unanswered 1 "^archspec: error: sm_opcode_t is an enumeration type that mk41 \\(ko\\) answers no name of$"
  get --arch mk41 sm_opcode_t)

# --match: whole words, or a glob.
archspec_shell(match_words 0 "^words ok$" [[
  "$ARCHSPEC" constants --arch mk44 --match num_pcu > words
  if grep -q enum_pcu words; then echo "a word matched inside another"; exit 1; fi
  "$ARCHSPEC" constants --arch mk44 --match NUM_STAGES | grep -q "^pcu_num_stages = 16" || exit 1
  "$ARCHSPEC" constants --arch mk44 --match num_stage | grep -q . && exit 1
  "$ARCHSPEC" features --arch mk44 --match fp8 | grep -q "^fp8_support = " || exit 1
  echo "words ok"]])
archspec_shell(match_glob 0 "^glob ok$" [[
  "$ARCHSPEC" constants --arch mk44 --match 'pcu_num_st*s' | cut -d' ' -f1 > glob
  printf 'pcu_num_stages\n' | cmp -s - glob || exit 1
  "$ARCHSPEC" constants --arch mk44 --match '*_clog?' | grep -q "^pcu_rob_window_size_clog2: " || exit 1
  n=$("$ARCHSPEC" constants --arch mk44 --match 'stage_opcode_alu_op_[a-c]*' | grep -cv '_op_[a-c]')
  [ "$n" = 0 ] || exit 1
  "$ARCHSPEC" constants --arch mk44 --match 'stage_opcode_alu_op_[!a-z]*' | grep -q . && exit 1
  echo "glob ok"]])

# Units beside values, the digits unchanged, and what they derive.
archspec_expect(get_unit_clock 0 "^cycle_time = 5\\.55556e-10  # seconds; clock frequency 1\\.8 GHz$"
  get --arch mk44 cycle_time)
archspec_expect(get_unit_seconds 0 "^bitfile_load_latency = 1e-05  # seconds$"
  get --arch mk41 bitfile_load_latency)
archspec_expect(get_unit_none 0 "^scalarwidth = 32$" get --arch mk44 scalarwidth)
archspec_expect(get_unit_json 0 "^    .group.: .Clock, bandwidth and latency of the chip.,$"
  get --arch mk44 --json pcie_bandwidth)
