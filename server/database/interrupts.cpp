#include "createdb/interrupts.h"

#include "common/text.h"
#include "platform/platform.h"

namespace createdb {
namespace {

// Begins a line of its own, as the cursor may stand behind a question or a step that has been announced.
std::string last_words(const std::string& files) {
  if (files.empty())
    return "\nInterrupted before a file was made\n";
  return text::concat("\nInterrupted, left behind:", files, "\n");
}

std::string files_made;  // each in quotes, after a blank

}  // namespace

void begin_interruptible_run() {
  files_made.clear();
  platform::system().end_on_interrupt(last_words(files_made));
}

void note_file_made(const std::string& path) {
  files_made += text::concat(" \"", path, '"');
  platform::system().end_on_interrupt(last_words(files_made));
}

}  // namespace createdb
