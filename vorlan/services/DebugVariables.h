// DebugVariables.h: finds, shows and changes the debug variables of the process, for a console or an admin
// endpoint.
#pragma once

#include "vorlan/foundation/Compiler.h"

#include <string>
#include <vector>

class DebuggerOn;

namespace VorlanPosix {

/// The table of all debug variables (DebuggerOn) of the process.
///
/// It exists from its first use, in static initialisation too, to the end of the process. A variable enters
/// it with its constructor. Where two have one name, the one built first is found and changed by that name,
/// and the others can only be listed.
/// Threading: any thread. Changes from outside don't undo one another: two threads that set one bit each both
/// get it set. A hook runs on the thread that makes the change, with no lock of the table held, so that it
/// may use the table itself; two changes at a time may so call one hook twice at a time.
/// Nothing here throws on bad input.
class VORLAN_API DebugVariables {
public:
    /// The name of one bit.
    struct Label {
        char const* text; ///< the variable's own, as given to its constructor
        unsigned int bit; ///< 0 to 31
    };

    /// One row of the table, as it stood when it was listed.
    struct Variable {
        DebuggerOn* variable;      ///< lives to the end of the process
        char const* name;          ///< the variable's own, as given to its constructor
        unsigned int value;        ///< the word at that moment
        std::vector<Label> labels; ///< in the order given to the constructor
    };

    /// All variables, by name; those of one name in the order in which they were built.
    static std::vector<Variable> list();

    /// The variable of that name; null if there is none.
    static DebuggerOn* find(char const* name);

    /// Stores the value, then calls the variable's hook, if it has one, with a record of the variable. False
    /// for a name that the table does not have; nothing has happened then.
    static bool change(char const* name, unsigned int value);

    /// Obeys one line of text and gives the answer, one or more lines each with its line feed:
    ///
    ///     list                     every variable with its value
    ///     show NAME                its value, and each label with its bit and state
    ///     set NAME VALUE           stores the value and calls the hook, as change() does
    ///     on NAME BIT-OR-LABEL     the same with one bit more
    ///     off NAME BIT-OR-LABEL    the same with one bit less
    ///
    /// Numbers are decimal or begin with 0x. A label is everything up to the end of the line, blanks
    /// included; a text that is a number is a bit number. A change answers with the value that stands when
    /// the hook has returned. A command that is wrong changes nothing and answers with one sentence that
    /// begins with "error: " and says what was wrong.
    /// A name with a blank in it can't be written here; change() takes it.
    static std::string command(std::string const& line);
};

} // namespace VorlanPosix
