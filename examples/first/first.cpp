#include <cstdlib>

#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

static void greet(void* aSocket, void*&) {
    osxSocketSend(aSocket, "hello\n", 6);
}

static void echo(void* aSocket, void*&, unsigned char* aData, unsigned long aLength) {
    osxSocketSend(aSocket, aData, aLength);
}

int main(int aCount, char** aArguments) {
    ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance()->initReactor();
    void* lPort = nullptr;
    osxRegisterPort(lPort, aCount > 1 ? std::strtoul(aArguments[1], nullptr, 10) : 7007, greet,
                    nullptr, echo, nullptr, nullptr);
    return osxRunReactor();  // until somebody calls osxStopReactor()
}
