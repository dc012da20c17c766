#include "manual.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <span>
#include <vector>

namespace velto::cli
{

namespace
{

struct OptionText
{
    std::vector<std::string> names; // with their dashes; empty for what has none
    std::string value;              // FILE, INT, any|below; empty for a switch
    std::string help;
    std::vector<std::string> choices;
    bool isRequired = false;
};

struct CommandText
{
    std::string name;
    std::string help;
    std::vector<OptionText> options; // those without dashes come first
};

std::string Replaced(std::string text, std::string_view what, std::string_view by)
{
    for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + by.size()))
        text.replace(at, what.size(), by);
    return text;
}

// `{any,below}`, with or without what precedes it.
std::vector<std::string> ChoicesOf(const std::string& value)
{
    std::vector<std::string> choices;
    const std::size_t open = value.find('{');
    const std::size_t close = value.find('}', open);
    if (open == std::string::npos || close == std::string::npos)
        return choices;
    std::size_t start = open + 1;
    while (start <= close)
    {
        const std::size_t end = std::min(value.find(',', start), close);
        choices.push_back(value.substr(start, end - start));
        start = end + 1;
    }
    return choices;
}

// As a sentence, but for its full stop.
std::string Capitalised(std::string text)
{
    if (!text.empty() && text[0] >= 'a' && text[0] <= 'z')
        text[0] = static_cast<char>(text[0] - 'a' + 'A');
    return text;
}

OptionText Describe(const CLI::Option& option)
{
    OptionText text;
    for (const std::string& name : option.get_snames())
        text.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        text.names.push_back("--" + name);
    // `TYPE:VALIDATOR`
    const std::string type = option.get_type_name();
    text.choices = ChoicesOf(type);
    if (text.names.empty())
        text.value = option.get_name(true);
    else if (option.get_items_expected_max() > 0)
        text.value =
            text.choices.empty() ? type.substr(0, type.find(':')) : fmt::format("{}", fmt::join(text.choices, "|"));
    text.help = option.get_description();
    const std::size_t range = type.find("in [");
    if (range != std::string::npos && type.back() == ']')
        text.help += ", " + Replaced(type.substr(range + 4, type.size() - range - 5), " - ", " to ");
    if (!option.get_default_str().empty())
        text.help += fmt::format(" (default {})", option.get_default_str());
    if (!option.get_envname().empty())
        text.help += fmt::format("; the variable {} sets it too", option.get_envname());
    text.help = Capitalised(std::move(text.help));
    text.isRequired = option.get_required();
    return text;
}

std::vector<CommandText> Describe(const CLI::App& app)
{
    std::vector<CommandText> commands;
    for (const CLI::App* const command : app.get_subcommands([](const CLI::App*) { return true; }))
    {
        CommandText text{command->get_name(), Capitalised(command->get_description()), {}};
        for (const CLI::Option* const option : command->get_options())
            text.options.push_back(Describe(*option));
        std::stable_partition(text.options.begin(), text.options.end(), [](const auto& o) { return o.names.empty(); });
        commands.push_back(std::move(text));
    }
    return commands;
}

// `velto bake GRAPH -o FILE [options]`
std::string Synopsis(const CommandText& command)
{
    std::string line = "velto " + command.name;
    for (const OptionText& option : command.options)
    {
        if (option.names.empty())
            line += option.isRequired ? " " + option.value : fmt::format(" [{}]", option.value);
        else if (option.isRequired)
            line += fmt::format(" {} {}", option.names.front(), option.value);
    }
    return line + " [options]";
}

constexpr std::pair<const char*, const char*> kVariables[] = {
    {"VELTO_SEARCH_PATH", "directories where relative file names are looked for, with colons between them"},
    {"VELTO_LIBRARY", "directories of documents that go by their names, with colons between them"},
    {"VELTO_THREADS", "threads, as --threads"},
    {"VELTO_MEMORY", "megabytes, as --memory"},
};

constexpr std::pair<const char*, const char*> kStatuses[] = {
    {"0", "success"},
    {"1", "the work failed: a graph that does not evaluate, a file that cannot be written"},
    {"2", "the command line or a document is wrong"},
};

std::string BashCompletion(std::span<const CommandText> commands)
{
    std::string names;
    std::string cases;
    std::string choices;
    for (const CommandText& command : commands)
    {
        names += (names.empty() ? "" : " ") + command.name;
        std::string options;
        for (const OptionText& option : command.options)
        {
            for (const std::string& name : option.names)
                options += (options.empty() ? "" : " ") + name;
            if (!option.choices.empty() && !option.names.empty())
                choices += fmt::format("        '{} {}') words='{}' ;;\n", command.name, option.names.back(),
                    fmt::join(option.choices, " "));
        }
        cases += fmt::format("        {}) options='{}' ;;\n", command.name, options);
    }
    return fmt::format(R"(# bash completion for velto: source <(velto completion bash)
_velto() {{
    local current=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD - 1]}} command=${{COMP_WORDS[1]}}
    local options='' words=''
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        mapfile -t COMPREPLY < <(compgen -W '{} --help --version' -- "$current")
        return
    fi
    case "$command $previous" in
{}    esac
    if [[ -n $words ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
        return
    fi
    case $command in
{}    esac
    if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$current")
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        compopt -o filenames 2>/dev/null
    fi
}}
complete -F _velto velto
)",
        names, choices, cases);
}

// Inside single quotes of zsh's _arguments.
std::string ZshQuoted(std::string text)
{
    text = Replaced(std::move(text), "'", "'\\''");
    for (const char* special : {"[", "]", ":"})
        text = Replaced(std::move(text), special, std::string("\\") + special);
    return text;
}

std::string ZshCompletion(std::span<const CommandText> commands)
{
    std::string list;
    std::string cases;
    for (const CommandText& command : commands)
    {
        list += fmt::format("        '{}:{}'\n", command.name, ZshQuoted(command.help));
        cases += fmt::format("        {}) _arguments \\\n", command.name);
        for (const OptionText& option : command.options)
        {
            const std::string action =
                option.choices.empty() ? "_files" : fmt::format("({})", fmt::join(option.choices, " "));
            for (const std::string& name : option.names)
                cases += fmt::format("            '*{}[{}]{}' \\\n", name, ZshQuoted(option.help),
                    option.value.empty() ? "" : fmt::format(":value:{}", action));
        }
        cases += "            '*:file:_files' ;;\n";
    }
    return fmt::format(R"(#compdef velto
# zsh completion for velto: source <(velto completion zsh)
_velto() {{
    local -a commands=(
{}    )
    if ((CURRENT == 2)); then
        _describe command commands
        return
    fi
    local command=$words[2]
    shift words
    ((CURRENT--))
    case $command in
{}    esac
}}
compdef _velto velto
)",
        list, cases);
}

std::string FishCompletion(std::span<const CommandText> commands)
{
    const auto quoted = [](const std::string& text) { return "'" + Replaced(text, "'", "\\'") + "'"; };
    std::string script = "# fish completion for velto: velto completion fish | source\n";
    for (const CommandText& command : commands)
        script += fmt::format(
            "complete -c velto -n __fish_use_subcommand -f -a {} -d {}\n", command.name, quoted(command.help));
    for (const CommandText& command : commands)
    {
        for (const OptionText& option : command.options)
        {
            if (option.names.empty())
                continue;
            script += fmt::format("complete -c velto -n '__fish_seen_subcommand_from {}'", command.name);
            for (const std::string& name : option.names)
                script += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
            if (!option.value.empty())
                script += " -r";
            if (!option.choices.empty())
                script += fmt::format(" -f -a {}", quoted(fmt::format("{}", fmt::join(option.choices, " "))));
            script += fmt::format(" -d {}\n", quoted(option.help));
        }
    }
    return script;
}

// A text of roff: no line of it is a request, and dashes stay what they are.
std::string Roff(std::string text)
{
    text = Replaced(std::move(text), "\\", "\\e");
    text = Replaced(std::move(text), "-", "\\-");
    if (text.starts_with('.') || text.starts_with('\''))
        text.insert(0, "\\&");
    return text;
}

} // namespace

std::string Completion(const CLI::App& app, std::string_view shell)
{
    const std::vector<CommandText> commands = Describe(app);
    if (shell == "bash")
        return BashCompletion(commands);
    if (shell == "zsh")
        return ZshCompletion(commands);
    return shell == "fish" ? FishCompletion(commands) : std::string();
}

std::string ManualPage(const CLI::App& app, std::string_view version)
{
    const std::vector<CommandText> commands = Describe(app);
    std::string page = fmt::format(".TH VELTO 1 \"\" \"velto {}\" \"User Commands\"\n.SH NAME\nvelto \\- bakes node "
                                   "graphs to textures\n.SH SYNOPSIS\n.nf\n",
        version);
    for (const CommandText& command : commands)
        page += Roff(Synopsis(command)) + "\n";
    page += ".fi\n.SH COMMANDS\n";
    for (const CommandText& command : commands)
    {
        page += fmt::format(".SS {}\n{}.\n", command.name, Roff(command.help));
        for (const OptionText& option : command.options)
        {
            std::string names;
            for (const std::string& name : option.names)
                names += (names.empty() ? "\\fB" : ", \\fB") + Roff(name) + "\\fR";
            if (!option.value.empty())
                names += (names.empty() ? "\\fI" : " \\fI") + Roff(option.value) + "\\fR";
            page += fmt::format(".TP\n{}\n{}.\n", names, Roff(option.help));
        }
    }
    const auto list = [&page](const char* title, const auto& entries) {
        page += fmt::format(".SH {}\n", title);
        for (const auto& [name, help] : entries)
            page += fmt::format(".TP\n\\fB{}\\fR\n{}.\n", name, Roff(help));
    };
    list("ENVIRONMENT", kVariables);
    list("EXIT STATUS", kStatuses);
    page += "A command that a signal ends, ends by that signal.\n";
    return page;
}

std::string ManualMarkdown(const CLI::App& app)
{
    const auto cell = [](const std::string& text) { return Replaced(text, "|", "\\|"); };
    std::string page = "# The command line\n\nWritten by the command itself.\n";
    for (const CommandText& command : Describe(app))
    {
        page += fmt::format("\n## {}\n\n    {}\n\n{}.\n\n| option | does |\n|---|---|\n", command.name,
            Synopsis(command), command.help);
        for (const OptionText& option : command.options)
        {
            const std::string names = fmt::format("{}", fmt::join(option.names, ", "));
            page += fmt::format("| `{}{}{}` | {} |\n", names, names.empty() || option.value.empty() ? "" : " ",
                cell(option.value), cell(option.help));
        }
    }
    page += "\n## Environment\n\n| variable | holds |\n|---|---|\n";
    for (const auto& [name, help] : kVariables)
        page += fmt::format("| `{}` | {} |\n", name, help);
    page += "\n## Exit status\n\n| status | means |\n|---|---|\n";
    for (const auto& [status, help] : kStatuses)
        page += fmt::format("| {} | {} |\n", status, help);
    return page + "\nA command that a signal ends, ends by that signal.\n";
}

} // namespace velto::cli
