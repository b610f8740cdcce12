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

}  // namespace

std::string BashCompletion(const CLI::App& app, const std::vector<std::string>& arches,
                           const std::vector<std::string>& tiles) {
  std::vector<std::string> names;
  std::string options;  // case arms: the options of each subcommand
  std::string values;   // case arms: the values of an option, by subcommand and option
  std::vector<std::string> with_tile;
  for (const CLI::App* command : app.get_subcommands({})) {
    const std::string& name = command->get_name();
    names.push_back(name);
    std::vector<std::string> flags{"--help"};
    for (const CLI::Option* option : command->get_options({})) {
      if (!option->nonpositional()) {
        if (option->get_name() == "TILE") with_tile.push_back(name);
        continue;
      }
      std::vector<std::string> spellings;
      for (const std::string& s : option->get_snames()) spellings.push_back("-" + s);
      for (const std::string& l : option->get_lnames()) spellings.push_back("--" + l);
      if (spellings.empty() || spellings.back() == "--help") continue;
      flags.insert(flags.end(), spellings.begin(), spellings.end());
      if (option->get_items_expected_max() == 0) continue;
      std::string words;
      if (spellings.back() == "--arch") {
        words = Words(arches);
      } else {
        words = Words(Choices(*option));
      }
      for (const std::string& spelling : spellings) {
        values += "    " + name + ":" + spelling + ") ";
        // A file for -o, free text (nothing to offer) for --match and the like.
        values += !words.empty() ? "COMPREPLY=($(compgen -W \"" + words + "\" -- \"$cur\"))"
                  : spellings.back() == "--output" ? "COMPREPLY=($(compgen -f -- \"$cur\"))"
                                                   : "COMPREPLY=()";
        values += "; return ;;\n";
      }
    }
    options += "    " + name + ") options=\"" + Words(flags) + "\" ;;\n";
  }
  std::string out;
  out += "# bash completion of archspec, made by `archspec --bash-completion` from its options.\n";
  out += "_archspec() {\n";
  out += "  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]} sub= i\n";
  out += "  for ((i = 1; i < COMP_CWORD; i++)); do\n";
  out += "    case ${COMP_WORDS[i]} in " + Words(names, "|") + ") ;; *) continue ;; esac\n";
  out += "    sub=${COMP_WORDS[i]}; break\n";
  out += "  done\n";
  out += "  if [[ -z $sub ]]; then\n";
  out += "    COMPREPLY=($(compgen -W \"" + Words(names) + " --help --version\" -- \"$cur\"))\n";
  out += "    return\n";
  out += "  fi\n";
  out += "  case $sub:$prev in\n" + values + "  esac\n";
  out += "  local options=\n";
  out += "  case $sub in\n" + options + "  esac\n";
  out += "  if [[ $cur == -* ]]; then\n";
  out += "    COMPREPLY=($(compgen -W \"$options\" -- \"$cur\"))\n";
  out += "    return\n";
  out += "  fi\n";
  out += "  case $sub in\n";
  out += "    " + Words(with_tile, "|") + ")\n";
  out += "      COMPREPLY=($(compgen -W \"" + Words(tiles) +
         "\" -- \"$cur\") $(compgen -f -- \"$cur\")) ;;\n";
  // Accessor names, asked of the tool itself for the generation of --arch (thousands of names:
  // too many to write into the script).
  out += "    get)\n";
  out += "      local arch=" + (arches.empty() ? std::string() : arches.back()) + " j kind\n";
  out += "      for ((j = 1; j < COMP_CWORD - 1; j++)); do\n";
  out += "        [[ ${COMP_WORDS[j]} == --arch ]] && arch=${COMP_WORDS[j+1]}\n";
  out += "      done\n";
  out += "      COMPREPLY=($(for kind in constants features constraints; do\n";
  out += "        \"${COMP_WORDS[0]}\" $kind --arch \"$arch\" --match \"$cur\" 2> /dev/null\n";
  out += "      done | sed -n \"s/^\\($cur[^ :]*\\).*/\\1/p\")) ;;\n";
  out += "    *) COMPREPLY=($(compgen -f -- \"$cur\")) ;;\n";
  out += "  esac\n";
  out += "}\n";
  out += "complete -o filenames -F _archspec archspec\n";
  return out;
}

}  // namespace archspec
