#pragma once

namespace CLI {
class App;
}

namespace Corvane {
namespace Tools {

// Each of these adds one subcommand. When the user names it, parsing runs it and stores what the program shall end
// with in `exitCode`, which must outlive the parsing.

void addServeCommand(CLI::App& app, int& exitCode);
void addPostCommand(CLI::App& app, int& exitCode);
void addNotifyCommand(CLI::App& app, int& exitCode);
void addListCommand(CLI::App& app, int& exitCode);
void addConfigCommand(CLI::App& app, int& exitCode);

}  // namespace Tools
}  // namespace Corvane
