/** @file
 * For tests of programs that talk to a television's viewer: a viewer without a display, on a
 * message bus and in directories of the test's own, so that tests run beside each other and beside
 * a real viewer.
 *
 *     kavrel::testing::Television television;            // up when the constructor returns
 *     kavrel::testing::Program app({"./my-app"});        // finds that viewer, and no other
 *     television.WaitForLine("TuneChannel");             // what the viewer was told
 *     television.WaitForState("pip_focus", "1");         // what it publishes
 *     television.SendKey("XF86Red");
 *     television.Screenshot();
 *
 * Needs no test framework, and fits each. Nothing here sleeps: waits end with what is waited for,
 * or at their limit. Programs that were started die with the thread that started them, even when
 * that is killed. Everything belongs to the thread that made it. C++17; link with Kavrel::Testing,
 * or with pkg-config's kavrel-testing.
 */
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// A viewer for tests, and what is useful beside one.
namespace kavrel::testing {

/// How limits are given.
using Milliseconds = std::chrono::milliseconds;

/// Longer than anything healthy takes on a loaded machine.
inline constexpr Milliseconds kLimit = std::chrono::seconds(30);

/// How a program ended.
struct Outcome {
  int exit_code;       ///< minus the number of the signal that ended it
  std::string output;  ///< all of its standard output
  std::string errors;  ///< all of its standard error
};

/// A program beside the test, with the test's environment. Killed and waited for by the destructor.
class Program {
 public:
  /// `arguments` begins with the program: a path, or a name that is looked for on PATH. Variables
  /// in `environment` are set for the program, or unset where they have no value. Throws
  /// std::system_error when it cannot be started.
  explicit Program(std::vector<std::string> arguments,
                   std::map<std::string, std::optional<std::string>> environment = {});
  /// @{
  /// Moves the program to another owner; one that is replaced is ended.
  Program(Program&&) noexcept;
  Program& operator=(Program&&) noexcept;
  /// @}
  ~Program();

  /// Its process id.
  int pid() const;

  /// Waits for a line with `text` on standard output or standard error, and returns it. Each line
  /// is found once: the next wait looks behind it. Nothing when no such line comes within the
  /// limit.
  std::optional<std::string> WaitForLine(const std::string& text, Milliseconds limit = kLimit);

  /// Waits for the end. Returns the exit code, or minus the number of the signal that ended it;
  /// nothing when it still runs at the limit.
  std::optional<int> WaitForExit(Milliseconds limit = kLimit);

  /// What was read of its standard output so far. Waits read.
  const std::string& output() const;
  /// What was read of its standard error so far.
  const std::string& errors() const;

  /// To its standard input. Throws std::system_error when it does not read.
  void Write(const std::string& text);
  /// Ends its standard input.
  void CloseInput();
  /// Sends it a signal, by number.
  void Signal(int signal);

 private:
  class Child;
  std::unique_ptr<Child> child_;
};

/// What was on a screen.
class Picture {
 public:
  /// Reads a PNG; throws std::runtime_error when the file is none.
  explicit Picture(const std::string& file);

  /// In pixels.
  int width() const { return width_; }
  /// In pixels.
  int height() const { return height_; }
  /// 0xRRGGBB; throws std::out_of_range outside the picture.
  unsigned At(int x, int y) const;
  /// A part of it, to compare what matters. Throws std::out_of_range when it is not wholly inside.
  Picture Part(int left, int top, int width, int height) const;

 private:
  Picture() = default;

  int width_ = 0;
  int height_ = 0;
  std::vector<unsigned char> bytes_;
};

/// How two pictures differ.
struct Difference {
  std::size_t pixels = 0;  ///< how many differ by more than was tolerated
  int channel = 0;         ///< the largest difference of one of red, green, blue, of all pixels
  /// @{
  /// The smallest rectangle that holds the pixels that differ.
  int left = 0, top = 0, width = 0, height = 0;
  /// @}
};

/// Compares pixel by pixel. Pixels are equal when none of red, green and blue differs by more than
/// `tolerance` (0 to 255): text is drawn a little differently by each version of a toolkit. Throws
/// std::invalid_argument when the pictures are not of one size.
Difference Compare(const Picture& one, const Picture& other, int tolerance = 0);

/// How a television is made.
struct TelevisionOptions {
  /// The viewer: a path, or a name that is looked for on PATH.
  std::string viewer = "kavrel-viewer";
  /// The command-line tool, likewise.
  std::string tool = "kavrelctl";
  /// What the viewer gets beside --headless, such as --banner-seconds: unasked, banners stay.
  std::vector<std::string> viewer_arguments = {};
};

/// A viewer without a display, a message bus for it and its plug-ins, and fresh directories for
/// their state. While it exists, these variables of this process, and so of the programs that it
/// starts, point there: KAVREL_RUNTIME_DIR, KAVREL_STATE_DIR, XDG_RUNTIME_DIR,
/// DBUS_SYSTEM_BUS_ADDRESS; KAVREL_APP_ID and KAVREL_EVENT_DIR are unset. All are put back at the
/// end. One at a time in a process, made while no other thread reads the environment.
///
/// A process that itself connects to the bus (a plug-in inside the test) keeps that connection: let
/// it have one Television for its whole life.
class Television {
 public:
  /// Returns when the viewer serves. Throws std::runtime_error with the words of what is missing.
  explicit Television(TelevisionOptions options = {});
  Television(const Television&) = delete;
  Television& operator=(const Television&) = delete;
  ~Television();

  /// A directory of this television's own, removed with it; also for the test's files.
  const std::string& directory() const;
  /// Where the bus is, as in DBUS_SYSTEM_BUS_ADDRESS.
  const std::string& bus_address() const;

  /// Waits for a line of the viewer: an operation that a client asked for, a key, what a plug-in
  /// does. See Program::WaitForLine. The viewer never waits for its reader: a test that lets
  /// thousands of operations pass unread loses lines.
  std::optional<std::string> WaitForLine(const std::string& text, Milliseconds limit = kLimit);

  /// Stops the viewer as a user does, and returns its exit code.
  int StopViewer();
  /// Ends it as a crash does.
  void KillViewer();
  /// Starts it anew, after one of the above; what is stored is still there.
  void StartViewer();

  /// Runs kavrelctl to its end.
  Outcome Tool(const std::vector<std::string>& arguments) const;

  /// A property of the viewer's state, as text: numbers in digits. Nothing when it has no value.
  /// Throws std::runtime_error when there is no such property.
  std::optional<std::string> State(const std::string& property) const;
  /// Waits until a property has a value. False when it has not within the limit.
  bool WaitForState(const std::string& property, const std::string& value,
                    Milliseconds limit = kLimit) const;

  /// Presses and releases a key of the remote control. Returns who took the press: "viewer",
  /// "nobody", or "plug-in " and its name. Throws std::runtime_error when there is no viewer.
  std::string SendKey(const std::string& key) const;

  /// What the viewer shows. Throws std::runtime_error when there is no viewer.
  Picture Screenshot() const;
  /// Takes pictures until one is as it should be, and returns that one: windows of plug-ins are
  /// drawn by their programs, in their own time. Nothing when none is within the limit.
  std::optional<Picture> WaitForScreen(const std::function<bool(const Picture&)>& is_right,
                                       Milliseconds limit = kLimit) const;

 private:
  class Parts;
  std::unique_ptr<Parts> parts_;
};

}  // namespace kavrel::testing
