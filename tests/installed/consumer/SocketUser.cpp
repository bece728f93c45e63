// Opens a socket and closes it again, with the device library alone.

#include <WdUtilsLib/Network/SocketUDP.h>

int main()
{
    WdUtilsLib::Network::SocketUDP lSocket;
    return lSocket.Open().IsOK() && lSocket.Close().IsOK() ? 0 : 1;
}
