// Ending the process goes through one seam, so that a test can watch an orderly shutdown happen.
#pragma once

using BtkExitHandler = void (*)(int code);

// Ends the process with the code through the installed handler (std::exit by default, which runs
// the static destructors: the logger's "Log closing" line depends on it). A test handler throws to
// unwind back into the test; a handler that returns makes btkExit abort.
[[noreturn]] void btkExit(int code);
// nullptr restores std::exit.
void btkSetExitHandler(BtkExitHandler handler);
