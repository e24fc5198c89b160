#pragma once

#include "tools/scripted-server/ScriptedServer.hpp"

#include <boost/json/array.hpp>

namespace conformance
{

/// What a server does to a connection, from the steps of a data file. Throws for a step that it
/// does not know, so that none is passed over.
///
/// A connection that the steps leave open stays so until the client is gone.
ScriptedServer::Script scriptOf(const boost::json::array& steps);

}  // namespace conformance
