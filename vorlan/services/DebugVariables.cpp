// The debug variables of the process: their table, and the text commands over it.

#include "vorlan/services/DebugVariables.h"

#include "vorlan/foundation/DebugServices.h"
#include "vorlan/foundation/RuntimeServices.h"
#include "vorlan/foundation/ScopeLock.h"
#include "vorlan/lifecycle/Bridge.h"

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <map>
#include <optional>
#include <string_view>
#include <utility>

// g++ takes an object for undetermined when its constructor begins, and drops plain stores made before. The
// variable's own accesses are atomic, which it leaves alone; this tells it that the word is alive all along.
#if defined(__GNUC__) && !defined(__clang__)
#define VORLAN_KEEPS_EARLIER_STORES __attribute__((optimize("no-lifetime-dse")))
#else
#define VORLAN_KEEPS_EARLIER_STORES
#endif

using VorlanPosix::DebugVariables;

namespace {

using Hook = BridgeHook<DebugRecord const&, bool>;
using Label = DebugVariables::Label;
using Lock = VorlanPosix::ScopeLock<VorlanPosix::JMutex>;

constexpr unsigned int kBits = 32;
constexpr unsigned int kPaired = 0xFFFFFFFF;

struct Entry {
    DebuggerOn* variable;
    char const* name;
    std::vector<Label> labels;
    Hook const* hook;
};

class Record final : public DebugRecord {
public:
    Record(char const* name, DebuggerOn* variable) : m_name(name), m_variable(variable) {}
    char const* getName() const override { return m_name; }
    DebuggerOn* getVariable() const override { return m_variable; }

private:
    char const* m_name;
    DebuggerOn* m_variable;
};

// The hook may be a dead one, which the call itself finds out; the sanitizer would look at its type before.
__attribute__((no_sanitize("vptr"))) bool call(Hook const& hook, Record const& record) {
    return hook.callCb(record);
}

// What a change makes of a value: the bits of `keep` stay, those of `set` are added.
struct Change {
    unsigned int keep;
    unsigned int set;
};

// What came of a change.
struct Changed {
    unsigned int value; // that stood when the hook had returned
    bool hookSucceeded; // true without a hook
};

class Table {
public:
    // Never destroyed: the first variables are older than it, and exit handlers still change some.
    static Table& getRef();

    void enter(DebuggerOn* variable, char const* name, std::vector<Label> labels) VORLAN_EXCLUDES(m_mutex);
    void setHook(DebuggerOn* variable, Hook const* hook) VORLAN_EXCLUDES(m_mutex);
    std::vector<DebugVariables::Variable> list() const VORLAN_EXCLUDES(m_mutex);

    // Both give nothing for a name that the table does not have.
    std::optional<DebugVariables::Variable> find(std::string_view name) const VORLAN_EXCLUDES(m_mutex);
    std::optional<Changed> change(std::string_view name, Change const& change) VORLAN_EXCLUDES(m_mutex);

private:
    Hook const* takeEarlyHookLocked(DebuggerOn* variable) VORLAN_REQUIRES(m_mutex);
    Entry const* findLocked(std::string_view name) const VORLAN_REQUIRES(m_mutex);

    mutable VorlanPosix::JMutex m_mutex;
    // In the order in which they were built.
    std::vector<Entry> m_entries VORLAN_GUARDED_BY(m_mutex);
    // Hooks of variables whose constructor has yet to run.
    std::map<DebuggerOn*, Hook const*> m_earlyHooks VORLAN_GUARDED_BY(m_mutex);
};

DebugVariables::Variable shown(Entry const& entry) {
    return {entry.variable, entry.name, entry.variable->get(), entry.labels};
}

Table& Table::getRef() {
    static Table* const s_table = new Table;
    return *s_table;
}

void Table::enter(DebuggerOn* variable, char const* name, std::vector<Label> labels) {
    Lock const lock(m_mutex);
    // A second variable in the storage of a first one takes its place.
    m_entries.erase(std::remove_if(m_entries.begin(), m_entries.end(),
                                   [variable](Entry const& e) { return e.variable == variable; }),
                    m_entries.end());
    m_entries.push_back({variable, name, std::move(labels), takeEarlyHookLocked(variable)});
}

void Table::setHook(DebuggerOn* variable, Hook const* hook) {
    Lock const lock(m_mutex);
    for (Entry& entry : m_entries) {
        if (entry.variable == variable) {
            entry.hook = hook;
            return;
        }
    }
    m_earlyHooks[variable] = hook;
}

std::vector<DebugVariables::Variable> Table::list() const {
    std::vector<DebugVariables::Variable> all;
    {
        Lock const lock(m_mutex);
        std::transform(m_entries.begin(), m_entries.end(), std::back_inserter(all), shown);
    }
    std::stable_sort(all.begin(), all.end(),
                     [](auto const& a, auto const& b) { return std::strcmp(a.name, b.name) < 0; });
    return all;
}

std::optional<DebugVariables::Variable> Table::find(std::string_view name) const {
    Lock const lock(m_mutex);
    Entry const* const entry = findLocked(name);
    return entry != nullptr ? std::optional(shown(*entry)) : std::nullopt;
}

std::optional<Changed> Table::change(std::string_view name, Change const& change) {
    Entry found;
    {
        Lock const lock(m_mutex);
        Entry const* const entry = findLocked(name);
        if (entry == nullptr) {
            return std::nullopt;
        }
        found = *entry;
        found.variable->setValue((found.variable->get() & change.keep) | change.set);
    }
    Record const record(found.name, found.variable);
    bool const succeeded = found.hook == nullptr || call(*found.hook, record);
    return Changed{found.variable->get(), succeeded};
}

Hook const* Table::takeEarlyHookLocked(DebuggerOn* variable) {
    auto const found = m_earlyHooks.find(variable);
    if (found == m_earlyHooks.end()) {
        return nullptr;
    }
    Hook const* const hook = found->second;
    m_earlyHooks.erase(found);
    return hook;
}

Entry const* Table::findLocked(std::string_view name) const {
    for (Entry const& entry : m_entries) {
        if (name == entry.name) {
            return &entry;
        }
    }
    return nullptr;
}

// The text commands. A command function gets what follows its word and gives the answer.

constexpr std::string_view kBlanks = " \t\r\n\v\f";
constexpr char kCommands[] =
    "list, show NAME, set NAME VALUE, on NAME BIT-OR-LABEL and off NAME BIT-OR-LABEL";

std::string_view trimmed(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

// Takes the first word off a trimmed text.
std::string_view takeWord(std::string_view& rest) {
    std::string_view const word = rest.substr(0, rest.find_first_of(kBlanks));
    rest = trimmed(rest.substr(word.size()));
    return word;
}

std::string quoted(std::string_view text) {
    return '"' + std::string(text) + '"';
}

std::string error(std::string const& sentence) {
    return "error: " + sentence + '\n';
}

std::string noVariable(std::string_view name) {
    return error("there is no debug variable " + quoted(name));
}

// NAME = 5 (0x5)
std::string valueText(std::string_view name, unsigned int value) {
    char hexadecimal[sizeof " (0x12345678)"];
    std::snprintf(hexadecimal, sizeof hexadecimal, " (0x%x)", value);
    return std::string(name) + " = " + std::to_string(value) + hexadecimal;
}

enum class NumberFault { None, NoNumber, Above32Bits };

NumberFault parseNumber(std::string_view text, unsigned int& number) {
    bool const hexadecimal = text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X";
    if (hexadecimal) {
        text.remove_prefix(2);
    }
    char const* const end = text.data() + text.size();
    auto const [stop, fault] = std::from_chars(text.data(), end, number, hexadecimal ? 16 : 10);
    if (fault == std::errc::invalid_argument || stop != end) {
        return NumberFault::NoNumber;
    }
    return fault == std::errc::result_out_of_range ? NumberFault::Above32Bits : NumberFault::None;
}

std::string changeAndTell(std::string_view name, Change const& change) {
    std::optional<Changed> const changed = Table::getRef().change(name, change);
    if (!changed) {
        return noVariable(name);
    }
    return valueText(name, changed->value) +
           (changed->hookSucceeded ? "\n" : ", but its hook reported a failure\n");
}

std::string listCommand(std::string_view rest) {
    if (!rest.empty()) {
        return error("list stands alone, but " + quoted(rest) + " follows it");
    }
    std::string answer;
    std::string_view nameBefore;
    for (DebugVariables::Variable const& variable : DebugVariables::list()) {
        answer += valueText(variable.name, variable.value);
        answer += variable.name == nameBefore ? ", out of reach behind another one of its name\n" : "\n";
        nameBefore = variable.name;
    }
    return answer.empty() ? "there are no debug variables\n" : answer;
}

std::string showCommand(std::string_view rest) {
    std::string_view const name = takeWord(rest);
    if (name.empty()) {
        return error("show needs a name: show NAME");
    }
    if (!rest.empty()) {
        return error("show takes one name, but " + quoted(rest) + " follows it");
    }
    std::optional<DebugVariables::Variable> const variable = Table::getRef().find(name);
    if (!variable) {
        return noVariable(name);
    }
    std::string answer = valueText(name, variable->value) + '\n';
    for (Label const& label : variable->labels) {
        bool const on = ((variable->value >> label.bit) & 1u) != 0;
        answer += "  bit " + std::to_string(label.bit) + (on ? " on:  " : " off: ") + label.text + '\n';
    }
    return answer;
}

std::string setCommand(std::string_view rest) {
    std::string_view const name = takeWord(rest);
    if (name.empty() || rest.empty()) {
        return error("set needs a name and a value: set NAME VALUE");
    }
    unsigned int value = 0;
    switch (parseNumber(rest, value)) {
    case NumberFault::NoNumber:
        return error(quoted(rest) + " is no number: decimal digits, or hexadecimal ones after 0x");
    case NumberFault::Above32Bits:
        return error(std::string(rest) + " does not fit into 32 bits");
    case NumberFault::None:
        break;
    }
    return changeAndTell(name, {0, value});
}

std::string switchBit(std::string const& command, std::string_view rest, bool on) {
    std::string_view const name = takeWord(rest);
    if (name.empty() || rest.empty()) {
        return error(command + " needs a name and a bit: " + command + " NAME BIT-OR-LABEL");
    }
    std::optional<DebugVariables::Variable> const variable = Table::getRef().find(name);
    if (!variable) {
        return noVariable(name);
    }
    unsigned int bit = 0;
    NumberFault const fault = parseNumber(rest, bit);
    if (fault == NumberFault::NoNumber) {
        auto const label = std::find_if(variable->labels.begin(), variable->labels.end(),
                                        [rest](Label const& l) { return rest == l.text; });
        if (label == variable->labels.end()) {
            return error(std::string(name) + " has no label " + quoted(rest));
        }
        bit = label->bit;
    } else if (fault == NumberFault::Above32Bits || bit >= kBits) {
        return error("there is no bit " + std::string(rest) + ": the highest is 31");
    }
    unsigned int const mask = 1u << bit;
    return changeAndTell(name, {~mask, on ? mask : 0});
}

std::string onCommand(std::string_view rest) {
    return switchBit("on", rest, true);
}

std::string offCommand(std::string_view rest) {
    return switchBit("off", rest, false);
}

struct CommandRow {
    std::string_view word;
    std::string (*obey)(std::string_view rest);
};

constexpr CommandRow kCommandRows[] = {
    {"list", listCommand}, {"show", showCommand}, {"set", setCommand}, {"on", onCommand}, {"off", offCommand},
};

} // namespace

VORLAN_KEEPS_EARLIER_STORES DebuggerOn::DebuggerOn(char const* name, unsigned int count, ...) {
    std::vector<Label> labels;
    auto const add = [&labels](char const* text, unsigned int bit) {
        if (text != nullptr && bit < kBits) {
            labels.push_back({text, bit});
        }
    };
    va_list args;
    va_start(args, count);
    if (count == kPaired) {
        while (char const* const text = va_arg(args, char const*)) {
            add(text, va_arg(args, unsigned int));
        }
    } else {
        for (unsigned int bit = 0; bit < std::min(count, kBits); ++bit) {
            add(va_arg(args, char const*), bit);
        }
    }
    va_end(args);
    Table::getRef().enter(this, name != nullptr ? name : "", std::move(labels));
}

void DebuggerOn::set(BridgeHook<DebugRecord const&, bool> const* hook) {
    Table::getRef().setHook(this, hook);
}

namespace VorlanPosix {

std::vector<DebugVariables::Variable> DebugVariables::list() {
    return Table::getRef().list();
}

DebuggerOn* DebugVariables::find(char const* name) {
    auto const found = Table::getRef().find(name != nullptr ? name : "");
    return found ? found->variable : nullptr;
}

bool DebugVariables::change(char const* name, unsigned int value) {
    return name != nullptr && Table::getRef().change(name, {0, value}).has_value();
}

std::string DebugVariables::command(std::string const& line) {
    std::string_view rest = trimmed(line);
    std::string_view const word = takeWord(rest);
    for (CommandRow const& row : kCommandRows) {
        if (word == row.word) {
            return row.obey(rest);
        }
    }
    std::string const fault = word.empty() ? "there is no command" : quoted(word) + " is no command";
    return error(fault + "; there are " + kCommands);
}

} // namespace VorlanPosix
