#include "Completion.h"

namespace archspec {
namespace {

std::string Words(const std::vector<std::string>& words, const char* separator = " ") {
  std::string out;
  for (const std::string& word : words) out += (out.empty() ? "" : separator) + word;
  return out;
}

// The words an option's value is one of, from its check (`TEXT:{tree,sparse,json}`), or none.
std::vector<std::string> Choices(const CLI::Option& option) {
  const std::string type = option.get_type_name();
  const size_t open = type.find('{');
  const size_t close = type.find('}', open);
  std::vector<std::string> out;
  if (open == std::string::npos || close == std::string::npos) return out;
  size_t begin = open + 1;
  while (begin < close) {
    size_t end = type.find(',', begin);
    if (end == std::string::npos || end > close) end = close;
    out.push_back(type.substr(begin, end - begin));
    begin = end + 1;
  }
  return out;
}

// The bash lines that put into COMPREPLY, one reply a line, what `compgen ARGS -- "$cur"` prints:
// file names with spaces stay whole, and the typed word is never code.
std::string Compgen(const std::string& args, bool append = false) {
  return std::string("mapfile -t ") + (append ? "-O \"${#COMPREPLY[@]}\" " : "") +
         "COMPREPLY < <(compgen " + args + " -- \"$cur\")";
}

void Replace(std::string& text, const std::string& mark, const std::string& with) {
  for (size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at)) {
    text.replace(at, mark.size(), with);
    at += with.size();
  }
}

// The script, with @MARKS@ for what the tool's options give. COMP_WORDS is split where bash
// splits words for completion, which by default includes '=': `--arch=mk43` arrives as three
// words, `--arch`, `=` and `mk43`. Where '=' is no word break it arrives whole and the value's
// replies keep the `--arch=` before them.
constexpr const char* kScript =
    R"(# bash completion of archspec, made by `archspec --bash-completion` from its options.
_archspec() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev='' prefix='' sub='' arch=@NEWEST@ tile='' i word
  COMPREPLY=()
  ((COMP_CWORD > 0)) && prev=${COMP_WORDS[COMP_CWORD - 1]}
  if [[ $cur == = ]]; then
    cur=''
  elif [[ $prev == = ]] && ((COMP_CWORD > 1)); then
    prev=${COMP_WORDS[COMP_CWORD - 2]}
  elif [[ $cur == --*=* ]]; then
    prev=${cur%%=*} prefix=${cur%%=*}= cur=${cur#*=}
  fi
  # The subcommand, and what the words before the cursor say: the generation and the tile.
  for ((i = 1; i < COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]}
    if [[ -z $sub ]]; then
      case $word in @NAMES@) sub=$word ;; esac
      continue
    fi
    case $word in
      --arch=*) arch=${word#--arch=} ;;
      --arch)
        if [[ ${COMP_WORDS[i + 1]-} == = ]]; then
          arch=${COMP_WORDS[i + 2]-}
        else
          arch=${COMP_WORDS[i + 1]-}
        fi
        ;;
      @TILES_ARM@) tile=$word ;;
    esac
  done
  if [[ -z $sub ]]; then
    @SUBCOMMANDS@
    return
  fi
  # The value of an option.
  local value=yes
  case $sub:$prev in
@VALUES@    *) value='' ;;
  esac
  if [[ -n $value ]]; then
    [[ -n $prefix ]] && COMPREPLY=("${COMPREPLY[@]/#/$prefix}")
    return
  fi
  [[ -n $prefix ]] && return  # an option that takes no value
  local options=''
  case $sub in
@OPTIONS@  esac
  if [[ $cur == -* ]]; then
    @OPTION_REPLIES@
    return
  fi
  # The operands: a tile until one is given, then files, a bit number or accessor names.
  case $sub in
@OPERANDS@  esac
}
complete -o filenames -F _archspec archspec
)";

}  // namespace

std::string BashCompletion(const CLI::App& app, const std::vector<std::string>& arches,
                           const std::vector<std::string>& tiles) {
  std::vector<std::string> names;
  std::string options;  // case arms: the options of each subcommand
  std::string values;   // case arms: the values of an option, by subcommand and option
  // The subcommands by what their operands are, after a TILE where they take one.
  std::vector<std::string> tile_then_files, tile_only, files_only;
  std::string accessors;  // the subcommand whose operands are accessor names
  for (const CLI::App* command : app.get_subcommands({})) {
    const std::string& name = command->get_name();
    names.push_back(name);
    std::vector<std::string> flags{"--help"};
    bool tile = false, files = false;
    for (const CLI::Option* option : command->get_options({})) {
      if (!option->nonpositional()) {
        // Operands: TILE, a bit number (BIT), accessor names (NAME), and files otherwise.
        const std::string& operand = option->get_name();
        if (operand == "TILE") {
          tile = true;
        } else if (operand == "NAME") {
          accessors = name;
        } else if (operand != "BIT") {
          files = true;
        }
        continue;
      }
      std::vector<std::string> spellings;
      for (const std::string& s : option->get_snames()) spellings.push_back("-" + s);
      for (const std::string& l : option->get_lnames()) spellings.push_back("--" + l);
      if (spellings.empty() || spellings.back() == "--help") continue;
      flags.insert(flags.end(), spellings.begin(), spellings.end());
      if (option->get_items_expected_max() == 0) continue;
      const std::string words = Words(spellings.back() == "--arch" ? arches : Choices(*option));
      // A file for -o, free text (nothing to offer) for --match and the like.
      const std::string reply = !words.empty()                   ? Compgen("-W \"" + words + "\"")
                                : spellings.back() == "--output" ? Compgen("-f")
                                                                 : std::string(":");
      std::vector<std::string> arms;
      for (const std::string& spelling : spellings) arms.push_back(name + ":" + spelling);
      values += "    " + Words(arms, " | ") + ") " + reply + " ;;\n";
    }
    options += "    " + name + ") options=\"" + Words(flags) + "\" ;;\n";
    if (tile) (files ? tile_then_files : tile_only).push_back(name);
    if (!tile && files) files_only.push_back(name);
  }

  const std::string tile_reply = "[[ -z $tile ]] && " + Compgen("-W \"" + Words(tiles) + "\"");
  std::string operands;
  if (!tile_then_files.empty()) {
    operands += "    " + Words(tile_then_files, " | ") + ")\n      " + tile_reply + "\n      " +
                Compgen("-f", true) + "\n      ;;\n";
  }
  if (!tile_only.empty()) {
    operands += "    " + Words(tile_only, " | ") + ") " + tile_reply + " ;;\n";
  }
  if (!files_only.empty()) {
    operands += "    " + Words(files_only, " | ") + ") " + Compgen("-f") + " ;;\n";
  }
  if (!accessors.empty()) {
    // Accessor names, asked of the tool itself for the generation of --arch (thousands of names:
    // too many to write into the script). Its lines read `name = value` or `name: ...`. The
    // typed word, without the characters a glob reads, asks for the names it begins.
    operands += "    " + accessors + R"()
      local kind line
      while IFS= read -r line; do
        line=${line%%[ :]*}
        [[ $line == "$cur"* ]] && COMPREPLY+=("$line")
      done < <(for kind in constants features constraints; do
        "${COMP_WORDS[0]}" "$kind" --arch "$arch" --match "${cur//[][*?]/}*" 2> /dev/null
      done)
      ;;
)";
  }

  std::string out = kScript;
  Replace(out, "@NEWEST@", arches.empty() ? std::string() : arches.back());
  Replace(out, "@NAMES@", Words(names, " | "));
  Replace(out, "@TILES_ARM@", Words(tiles, " | "));
  Replace(out, "@SUBCOMMANDS@", Compgen("-W \"" + Words(names) + " --help --version\""));
  Replace(out, "@VALUES@", values);
  Replace(out, "@OPTIONS@", options);
  Replace(out, "@OPTION_REPLIES@", Compgen("-W \"$options\""));
  Replace(out, "@OPERANDS@", operands);
  return out;
}

}  // namespace archspec
