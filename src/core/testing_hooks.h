#pragma once
// Every seam that exists only for tests. The program never sets one; each is empty or the
// default until a test installs it, and a test puts it back before it ends.
//
// The storage stays beside the code it hooks (logger.cpp, value.cpp), so production classes
// carry no test-only members.

#include <cstddef>
#include <functional>

namespace zp {
namespace testing_hooks {

// Takes every log line instead of the file: no level or tag filter applies, nothing is written
// to the stream. Called with the level, the tag and the formatted line (cut as in the file).
using LogSink = std::function<void(int& level, const char*& tag, const char*& text)>;
LogSink& log_sink();

// Allocation of Value's payload copies, so that out-of-memory can be provoked; null restores
// malloc.
using AllocFn = void* (*)(size_t);
void set_value_allocator(AllocFn fn);

}  // namespace testing_hooks
}  // namespace zp
