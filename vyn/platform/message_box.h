// Message boxes for the crash path: a desktop dialog (zenity) when the
// process has a display, the standard error stream otherwise; and the start
// of the message-box host program, which shows the box in a process of its
// own so that a crashed process can end while the user reads.
//
// Texts are the library's 8-bit texts (Windows-1252) with CR LF line ends;
// they are shown as UTF-8 with plain line feeds, and never interpreted as
// markup.
//
// Everything that allocates happens in the Prepare functions; the Show and
// Start functions allocate nothing and may be called from a signal handler.
// Thread-safety: prepare once, before the other calls; those may run on any
// thread.
#pragma once

#include <cstdint>

namespace vyn::platform {

// The name of the host program, and the entry point it is given.
inline constexpr const char* kMessageBoxHostProgram = "vyn-rundll";

// Finds the dialog program when the process has a display. Needed before
// ShowMessageBoxHere; harmless to call more than once.
void PrepareMessageBoxDisplay();

// Finds the host program and the library file it is to load; false when
// either is missing (StartMessageBoxHost then fails).
bool PrepareMessageBoxHost(const char* entry_point);

// Shows the box in this process and returns when the user has closed it (or
// at once, after writing to standard error, when there is no display).
// `type` is the platform's message-box style: 0x10 error, 0x20 question,
// 0x30 warning, 0x40 information; other bits are ignored.
void ShowMessageBoxHere(const char* text, const char* caption, uint32_t type);

// Starts the host program with the library, its entry point, the text, the
// caption and the type as its arguments, and does not wait for it. False
// when it could not be started.
bool StartMessageBoxHost(const char* text, const char* caption, uint32_t type);

}  // namespace vyn::platform
