#include "ace/Reactor.h"

int main() {
    return ACE_Reactor::instance()->run_reactor_event_loop();
}
