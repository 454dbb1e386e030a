#pragma once

#include <memory>
#include <vector>

#include <boost/function.hpp>

#include "kracore/DebugMonitor.h"
#include "kracore/Export.h"
#include "kracore/WStr.h"

namespace kracore::console {

using OutputStream = debug::UTF16StringStream;

/// One developer command. A new object serves each call.
class ZUC_API Command {
public:
    virtual ~Command();
    /// Runs with the words behind the command's name; replies go to `out`, lines end in u"\n". [host]
    virtual void Execute(const std::vector<WStr>& arguments, OutputStream& out) = 0;
};

/// The commands of the process. Names count case. [host]
class ZUC_API CommandRegistry {
public:
    using Creator = boost::function<std::unique_ptr<Command>()>;
    struct Entry {
        WStr name;
        WStr help;
    };

    /// The last registration of a name wins.
    static void RegisterCommand(const WStr& name, const WStr& help, Creator creator);
    static void UnregisterCommand(const WStr& name);
    /// Ascending by name.
    static std::vector<Entry> GetCommands();
    /// Splits the line at blanks and runs the command of the first word; false when there is none.
    static bool Execute(const WStr& line, OutputStream& out);
};

}  // namespace kracore::console
