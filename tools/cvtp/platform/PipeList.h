#pragma once

#include <string>
#include <vector>

namespace Corvane {
namespace Tools {

/// A pipe that exists on this machine.
struct ListedPipe {
    enum class Server { LIVES, NONE, UNKNOWN };

    std::string name;
    Server server = Server::UNKNOWN;
    /// Whose it is; empty when that cannot be known.
    std::string user;
};

/// Finds the pipes that exist, in the order of their names. Disturbs no server, unless it is told to.
///
/// @param mayConnect connect to a pipe for a moment, where its user cannot be known otherwise. Its server sees a
///        client that goes again.
/// @throws std::runtime_error the pipes cannot be looked for.
std::vector<ListedPipe> listPipes(bool mayConnect);

}  // namespace Tools
}  // namespace Corvane
