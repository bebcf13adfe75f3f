#pragma once

#include <tools/algtrack/terminal/Interrupt.h>
#include <tools/algtrack/terminal/Unfinished.h>

#include <fstream>
#include <string>
#include <vector>

namespace algtrack {

/// Where an output goes.
struct OutputPlace {
  enum class Kind {
    kFile,            ///< a regular file, there already or not
    kDevice,          ///< a character device or a pipe: written into, never replaced
    kStandardOutput,  ///< "-", or another name of the program's standard output
  };
  Kind kind = Kind::kFile;
  std::string name;  ///< as it was given, for messages
  std::string path;  ///< with links followed: a link stays, the file at its end is written

  bool isStandardOutput() const { return kind == Kind::kStandardOutput; }
};

/// Refuses a name that cannot be an output: empty, a directory or a block device, in a folder that
/// does not exist, or, unless `force`, a regular file that exists.
/// @throws std::runtime_error in one line
OutputPlace outputPlace(const std::string& name, bool force);

/// As outputPlace, for a check alone.
void checkOutputPath(const std::string& name, bool force);

/// Checks all outputs of a command before the first is written: each as checkOutputPath, no two the
/// same file, none an input of the command, whatever name it goes by and --force or not. Empty
/// names count as not given.
/// @throws std::runtime_error in one line
void checkOutputs(const std::vector<std::string>& outputs, const std::vector<std::string>& inputs,
                  bool force);

/// Refuses to write over one of a command's own inputs, --force or not.
/// @throws std::runtime_error in one line
void checkNotInput(const std::string& output, const std::string& input);

/// Whether an output is the standard output, which then has room for nothing else.
bool isStandardOutput(const std::string& name);

/// For outputs that are several files with names of one beginning.
/// @throws std::runtime_error in one line, if that is the standard output
void checkPrefix(const std::string& option, const std::string& prefix);

/// Behind the name of an output until it is complete.
constexpr const char* kPartial = ".partial";

/// Where an output is written until it is complete: beside `path`, on the same disk.
std::string partialPath(const std::string& path);

/// Makes an empty file of that name, never through a link. One that is there is what an earlier run
/// left, or what another is writing: refused unless `force`.
/// @throws std::runtime_error in one line
void makePartialFile(const std::string& path, bool force);

/// A text or binary output that appears under its name only when it is complete: written beside it
/// and renamed by `commit`. What was not committed is removed, and an older file stays. Devices,
/// pipes and the standard output are written as it comes.
class OutputFile {
 public:
  /// @throws std::runtime_error as outputPlace, or when it cannot be opened
  OutputFile(const std::string& name, bool force);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  std::ostream& stream();
  const std::string& path() const { return place_.name; }  ///< as it was given

  /// @throws std::runtime_error if anything could not be written, or after Ctrl-C
  void commit();

 private:
  InterruptsNoted interrupts_;
  OutputPlace place_;
  Unfinished unfinished_;
  std::ofstream stream_;
  bool committed_ = false;
};

}  // namespace algtrack
