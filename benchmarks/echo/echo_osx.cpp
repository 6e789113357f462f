// Usage, of every server here: PROGRAM PORT THREADS
#include <cstdlib>
#include <thread>
#include <vector>

#include "osx/OSX_Reactor.h"
#include "osx/osx.h"

namespace {
void echo(void* aSocket, void*&, unsigned char* aData, unsigned long aLength) {
    osxSocketSend(aSocket, aData, aLength);
}
}  // namespace

int main(int, char** aArguments) {
    OSX_Reactor* lReactor = ACE_Unmanaged_Singleton<OSX_Reactor, ACE_Thread_Mutex>::instance();
    lReactor->initReactor();
    void* lPort = nullptr;
    osxRegisterPort(lPort, std::strtoul(aArguments[1], nullptr, 10), nullptr, nullptr, echo,
                    nullptr, nullptr);
    for (int lThread = 1; lThread < std::atoi(aArguments[2]); ++lThread) {
        lReactor->startExtraReactorThread();
    }
    return osxRunReactor();
}
