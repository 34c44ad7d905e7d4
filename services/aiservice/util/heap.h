#pragma once

/// How the process uses its heap. Does nothing where the C library isn't glibc.
namespace heap {

/// Pictures and events of some megabytes come and go with every frame. Kept in the heap, they aren't faulted
/// in anew each time. Few arenas, because each keeps its own. Called once, before there are threads.
void keepFreed();

/// Gives what is kept and not used back to the system, which is the larger part of the memory when the last
/// analysis has ended. Any thread; takes some milliseconds.
void giveBack();

} // namespace heap
