#pragma once

// Mach: https://developer.apple.com/documentation/kernel/mach
// The numbers and types are those of the headers of the published kernel:
// https://github.com/apple-oss-distributions/xnu/tree/main/osfmk/mach

#ifdef __cplusplus
extern "C" {
#endif

typedef int kern_return_t;
typedef unsigned int mach_port_t;
typedef unsigned int mach_port_right_t;
typedef int mach_port_delta_t;
#define KERN_SUCCESS 0
#define MACH_PORT_RIGHT_RECEIVE 1

// mach_task_self, a macro around a variable of the system's library:
// https://github.com/apple-oss-distributions/xnu/blob/main/libsyscall/mach/mach/mach_init.h
extern mach_port_t mach_task_self_;
#define mach_task_self() mach_task_self_
// https://developer.apple.com/documentation/kernel/1578704-mach_port_allocate
kern_return_t mach_port_allocate(mach_port_t task, mach_port_right_t right, mach_port_t* name);
// https://developer.apple.com/documentation/kernel/1578894-mach_port_mod_refs
kern_return_t mach_port_mod_refs(mach_port_t task, mach_port_t name, mach_port_right_t right,
                                 mach_port_delta_t delta);

#ifdef __cplusplus
}
#endif
