/// @file
/// Which sockets are connections of ports. Internal.
#ifndef OSX_OSX_PORTCONNECTIONS_H
#define OSX_OSX_PORTCONNECTIONS_H

class osxDataHandler;

namespace osx {

/// @name The connections of all ports
/// A handle of a socket is all that the application has. One of a port's connection is known by its
/// address, which the handler of the connection enters, and takes out before it closes the socket.
/// @{
void enterConnection(osxDataHandler& aHandler);
void takeConnectionOut(osxDataHandler& aHandler);

/// Ends a connection, if the socket is that of a port's: its handler closes it.
/// @return whether it is.
bool endConnection(const void* aSocket);

/// Shuts down those whose peers have vanished, so that whoever waits for them or is registered for
/// them learns that they ended. @return whether there are any connections.
bool endVanishedConnections();
bool hasConnections();
/// @}

}  // namespace osx

#endif
