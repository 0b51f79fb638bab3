#pragma once
#pragma GCC system_header  // one name for a struct and a function

// kqueue(2), kevent(2):
// https://developer.apple.com/library/archive/documentation/System/Conceptual/ManPages_iPhoneOS/man2/kqueue.2.html
// The numbers are those of the binding "libc" for Apple's systems, the layout that of "Kevent_t" of
// golang.org/x/sys/unix for darwin.

#include <stdint.h>
#include <time.h>

// kqueue(2): filters, flags, units of a timer
#define EVFILT_READ (-1)
#define EVFILT_PROC (-5)
#define EVFILT_TIMER (-7)
#define EVFILT_MACHPORT (-8)
#define EVFILT_USER (-10)
#define EV_ADD 0x0001
#define EV_ONESHOT 0x0010
#define EV_CLEAR 0x0020
#define NOTE_EXIT 0x80000000u
#define NOTE_TRIGGER 0x01000000
#define NOTE_USECONDS 0x00000002

// kqueue(2). No page found packs it to 4 bytes; the layout is the same without.
#pragma pack(push, 4)
struct kevent {
  uintptr_t ident;
  int16_t filter;
  uint16_t flags;
  uint32_t fflags;
  intptr_t data;
  void* udata;
};
#pragma pack(pop)

// kqueue(2): a macro that fills in the fields in this order
#define EV_SET(event, a, b, c, d, e, f) \
  do {                                  \
    struct kevent* target_ = (event);   \
    target_->ident = (a);               \
    target_->filter = (b);              \
    target_->flags = (c);               \
    target_->fflags = (d);              \
    target_->data = (e);                \
    target_->udata = (f);               \
  } while (0)

#ifdef __cplusplus
extern "C" {
#endif
// kqueue(2)
int kqueue(void);
int kevent(int kq, const struct kevent* changelist, int nchanges, struct kevent* eventlist,
           int nevents, const struct timespec* timeout);
#ifdef __cplusplus
}
#endif
