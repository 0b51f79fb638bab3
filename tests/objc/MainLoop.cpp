#include <ClientComm/RunLoop.h>

extern "C" void QBHPRunMainLoop() { qbdkr::RunLoop::main().run(); }
extern "C" void QBHPStopMainLoop() { qbdkr::RunLoop::main().stop(); }
