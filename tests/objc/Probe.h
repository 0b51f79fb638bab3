#pragma once

#import <Foundation/Foundation.h>

// Runs the main run loop of the framework, and ends it. On macOS that is Foundation's own.
#ifdef __cplusplus
extern "C" {
#endif
void QBHPRunMainLoop(void);
void QBHPStopMainLoop(void);
#ifdef __cplusplus
}
#endif
