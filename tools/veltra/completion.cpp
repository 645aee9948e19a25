// SPDX-License-Identifier: Apache-2.0
// The verb `completion`: prints what a shell needs to complete the tool's words. All three scripts are made from the
// command line as it was built, so a verb or an option is in them as soon as it exists.
#include <algorithm>
#include <memory>

#include "verbs.h"

namespace VeltraTool {

namespace {

// A verb with what may follow it.
struct Level {
    std::string path;  // "", "simulate", "simulate load"
    std::vector<const CLI::App*> verbs;
    std::vector<const CLI::Option*> options;  // the tool's own too
    std::vector<std::string> words;
};

bool IsHidden(const CLI::App& verb)
{
    return verb.get_group().empty();
}

// Those with a name that the level has not yet: an option of the tool itself may follow a verb, whose own goes first.
void AddOptions(const CLI::App& verb, Level& level)
{
    for (const CLI::Option* const option : verb.get_options()) {
        const std::vector<std::string>& names = option->get_lnames();
        const bool isKnown = std::any_of(level.options.begin(), level.options.end(),
                                         [&names](const auto* each) { return each->get_lnames() == names; });
        if (!names.empty() && !isKnown) {
            level.options.push_back(option);
        }
    }
}

void Collect(const CLI::App& verb, const std::string& path, const Tool& tool, std::vector<Level>& levels)
{
    Level level;
    level.path = path;
    for (const CLI::App* each : verb.get_subcommands(nullptr)) {
        if (!IsHidden(*each)) {
            level.verbs.push_back(each);
        }
    }
    // A verb also accepts the options of those above it.
    for (const CLI::App* from = &verb; from != nullptr; from = from->get_parent()) {
        AddOptions(*from, level);
    }
    if (const auto words = tool.words.find(&verb); words != tool.words.end()) {
        level.words = words->second;
    }
    levels.push_back(level);
    for (const CLI::App* const each : level.verbs) {
        Collect(*each, path + (path.empty() ? "" : " ") + each->get_name(), tool, levels);
    }
}

// Within single quotes of a shell.
std::string Quoted(const std::string& text)
{
    std::string quoted = "'";
    for (const char letter : text) {
        // A quote inside single quotes: end them, an escaped quote, begin again.
        quoted += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
    }
    return quoted + "'";
}

std::string WordsOf(const Level& level)
{
    std::string words;
    for (const CLI::App* const verb : level.verbs) {
        words += verb->get_name() + " ";
    }
    for (const std::string& word : level.words) {
        words += word + " ";
    }
    for (const CLI::Option* const option : level.options) {
        words += "--" + option->get_lnames().front() + " ";
    }
    return words;
}

// The path of verbs that stand on the line before the word in question.
constexpr char PATH_OF_LINE[] =
    "    local verbs='' word\n"
    "    for word in \"${before[@]}\"; do\n"
    "        case \"$verbs $word\" in\n"
    "            %PATHS%) verbs=\"${verbs:+$verbs }$word\" ;;\n"
    "        esac\n"
    "    done\n";

std::string Replaced(std::string text, const std::string& mark, const std::string& by)
{
    text.replace(text.find(mark), mark.size(), by);
    return text;
}

// Finds the verbs among the words, then selects the candidates of that path.
// In the part of the language that bash and zsh share: from `before`, the words on the line, to `candidates`.
std::string WordsFunction(const std::vector<Level>& levels)
{
    std::string paths;
    std::string cases;
    for (const Level& level : levels) {
        const size_t last = level.path.rfind(' ');
        const std::string parent = last == std::string::npos ? "" : level.path.substr(0, last);
        const std::string name = last == std::string::npos ? level.path : level.path.substr(last + 1);
        if (!level.path.empty()) {
            paths += (paths.empty() ? "" : "|") + Quoted(parent + " " + name);
        }
        cases += "        " + Quoted(level.path) + ") candidates=" + Quoted(WordsOf(level)) + " ;;\n";
    }
    return Replaced(PATH_OF_LINE, "%PATHS%", paths) + "    case \"$verbs\" in\n" + cases + "    esac\n";
}

void PrintBash(const std::vector<Level>& levels)
{
    PrintLine(
        "# bash completion for veltra, made by: veltra completion bash\n_veltra() {\n"
        "    local before=(\"${COMP_WORDS[@]:1:COMP_CWORD-1}\") candidates=''\n" +
        WordsFunction(levels) +
        "    local current=\"${COMP_WORDS[COMP_CWORD]}\"\n"
        "    mapfile -t COMPREPLY < <(compgen -W \"$candidates\" -- \"$current\")\n"
        "    [[ ${#COMPREPLY[@]} -ne 1 || \"${COMPREPLY[0]}\" != *= ]] || compopt -o nospace\n"
        "}\n"
        "complete -o default -F _veltra veltra");
}

void PrintZsh(const std::vector<Level>& levels)
{
    PrintLine(
        "#compdef veltra\n# zsh completion for veltra, made by: veltra completion zsh\n_veltra() {\n"
        "    local -a before\n"
        "    local candidates=''\n"
        "    before=(\"${(@)words[2,CURRENT-1]}\")\n" +
        WordsFunction(levels) +
        "    compadd -- ${=candidates}\n"
        "    _files\n"
        "}\n"
        "_veltra \"$@\"");
}

void PrintFish(const std::vector<Level>& levels)
{
    PrintLine("# fish completion for veltra, made by: veltra completion fish");
    for (const Level& level : levels) {
        std::string condition = "__fish_use_subcommand";
        if (!level.path.empty()) {
            // rfind returns npos for a single word, and npos + 1 is 0: the whole path.
            condition = "__fish_seen_subcommand_from " + level.path.substr(level.path.rfind(' ') + 1);
            const size_t last = level.path.rfind(' ');
            if (last != std::string::npos) {
                condition += "; and __fish_seen_subcommand_from " + level.path.substr(0, last);
            }
        }
        const std::string start = "complete -c veltra -n " + Quoted(condition);
        for (const CLI::App* const verb : level.verbs) {
            PrintLine(start + " -a " + verb->get_name() + " -d " + Quoted(verb->get_description()));
        }
        for (const CLI::Option* const option : level.options) {
            PrintLine(start + " -l " + option->get_lnames().front() +
                      (option->get_items_expected_max() > 0 ? " -r" : "") + " -d " + Quoted(option->get_description()));
        }
        if (!level.words.empty()) {
            std::string words;
            for (const std::string& word : level.words) {
                words += (words.empty() ? "" : " ") + word;
            }
            PrintLine(start + " -a " + Quoted(words));
        }
    }
}

}  // namespace

void AddCompletion(CLI::App& app, Tool& tool)
{
    CLI::App* const verb = AddVerb(app, "completion", "Print the completion script of a shell");
    const auto shell = std::make_shared<std::string>();
    verb->add_option("shell", *shell, "bash, zsh or fish")->required()->check(CLI::IsMember({"bash", "zsh", "fish"}));
    tool.words[verb] = {"bash", "zsh", "fish"};
    verb->callback([&app, shell, &tool] {
        std::vector<Level> levels;
        Collect(app, "", tool, levels);
        if (*shell == "bash") {
            PrintBash(levels);
        } else if (*shell == "zsh") {
            PrintZsh(levels);
        } else {
            PrintFish(levels);
        }
    });
}

}  // namespace VeltraTool
