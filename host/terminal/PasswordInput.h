#pragma once

#include <string>

namespace Host {

/// Reads a password from the first line of standard input (without its line end); when standard
/// input is a terminal, after asking for it on standard error and without showing what is typed.
/// False when standard input ends before any character or is a terminal that gives an empty line.
bool readPasswordFromStdin(std::string& password);

/// Asks for a line on the controlling terminal without showing what is typed, and gives it back
/// (without its line end). The terminal's settings are restored afterwards, also when the read
/// is interrupted. False when there is no terminal or the read was interrupted.
bool promptWithoutEcho(const std::string& prompt, std::string& answer);

/// Asks for a line on the controlling terminal, showing what is typed. False as above.
bool promptLine(const std::string& prompt, std::string& answer);

/// Writes `text` to the controlling terminal (nothing when there is none).
void writeToTerminal(const std::string& text);

/// Whether the process has a controlling terminal to ask on.
bool hasTerminal();

} // namespace Host
