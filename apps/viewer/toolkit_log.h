// What EFL has to say about itself.
#pragma once

namespace viewer {

/// Hands EFL's log lines to the log service. EFL itself writes them to standard error and waits
/// there for as long as the reader does not read, with the whole viewer. Before any other thread.
void LogForToolkit();

}  // namespace viewer
