#include "support/replaced_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <thread>

#include "tests/kit/failing_allocator.h"

namespace {

using qk::write_replaced_file;

/** A folder of the test's own, which is the current one. */
class ReplacedFile : public testing::Test {
 protected:
  ReplacedFile() {
    std::string name = testing::TempDir() + "replaced_file_XXXXXX";
    folder_ = mkdtemp(name.data());
    std::filesystem::current_path(folder_);
  }
  ~ReplacedFile() override {
    std::filesystem::current_path("/");
    std::filesystem::remove_all(folder_);
  }

  static std::string text_of(const std::string& name) {
    std::ifstream file(name);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  static void make(const std::string& name, const std::string& text) {
    std::ofstream(name) << text;
  }

  /** The names of all files. */
  static std::set<std::string> files() {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(".")) {
      names.insert(entry.path().filename());
    }
    return names;
  }

  static mode_t permissions_of(const char* name) {
    struct stat status = {};
    EXPECT_EQ(lstat(name, &status), 0);
    return status.st_mode & 07777;
  }

 private:
  std::string folder_;
};

using Names = std::set<std::string>;

const std::string& large_text() {
  static const std::string text(1 << 20, 'x');
  return text;
}

/** Reads all that comes from a descriptor, after a while in which its buffer becomes full. */
std::string read_late(int descriptor) {
  poll(nullptr, 0, 50);
  std::string all;
  char part[4096];
  for (ssize_t length; (length = read(descriptor, part, sizeof part)) > 0;) {
    all.append(part, static_cast<std::size_t>(length));
  }
  close(descriptor);
  return all;
}

TEST_F(ReplacedFile, IsMadeWithAllOfTheText) {
  umask(027);
  EXPECT_EQ(write_replaced_file("report", large_text()), 0);
  EXPECT_EQ(text_of("report"), large_text());
  EXPECT_EQ(permissions_of("report"), 0640U);
  EXPECT_EQ(files(), Names{"report"});
}

TEST_F(ReplacedFile, CanBeEmpty) {
  make("report", "old");
  EXPECT_EQ(write_replaced_file("report", {}), 0);
  EXPECT_EQ(text_of("report"), "");
}

TEST_F(ReplacedFile, TakesTheNameAndThePermissionsOfTheOldOne) {
  make("report", "a long old text");
  ASSERT_EQ(chmod("report", 0606), 0);
  ASSERT_EQ(link("report", "other_name"), 0);
  EXPECT_EQ(write_replaced_file("report", "new"), 0);
  EXPECT_EQ(text_of("report"), "new");
  EXPECT_EQ(permissions_of("report"), 0606U);
  EXPECT_EQ(text_of("other_name"), "a long old text");
  EXPECT_EQ(files(), (Names{"report", "other_name"}));
}

TEST_F(ReplacedFile, ShowsReadersWholeTextsOnly) {
  constexpr std::size_t kSize = 300000;
  make("report", std::string(kSize, 'a'));
  const pid_t writer = fork();
  if (writer == 0) {
    for (int i = 0; i < 300; ++i) {
      const std::string text(kSize, static_cast<char>('a' + i % 2));
      if (write_replaced_file("report", text) != 0) _exit(1);
    }
    _exit(0);
  }
  int status = -1;
  while (waitpid(writer, &status, WNOHANG) == 0) {
    const std::string text = text_of("report");
    ASSERT_EQ(text, std::string(kSize, text.empty() ? '?' : text[0]));
  }
  EXPECT_EQ(status, 0);
}

TEST_F(ReplacedFile, IsTheOldOneIfThereIsNoRoom) {
  make("report", "old");
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit small = {1000, 1000};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
  EXPECT_EQ(write_replaced_file("report", std::string(1001, 'x')), EFBIG);
  EXPECT_EQ(text_of("report"), "old");
  EXPECT_EQ(write_replaced_file("other", std::string(5000, 'x')), EFBIG);
  EXPECT_EQ(files(), Names{"report"});
  EXPECT_EQ(write_replaced_file("report", std::string(1000, 'x')), 0);
}

TEST_F(ReplacedFile, NeedsAFolderAndAName) {
  make("file", "kept");
  ASSERT_EQ(mkdir("folder", 0700), 0);
  EXPECT_EQ(write_replaced_file("missing/report", "new"), ENOENT);
  EXPECT_EQ(write_replaced_file("file/report", "new"), ENOTDIR);
  EXPECT_EQ(write_replaced_file("folder", "new"), EISDIR);
  EXPECT_EQ(write_replaced_file("folder/", "new"), EISDIR);
  EXPECT_EQ(write_replaced_file("", "new"), ENOENT);
  EXPECT_EQ(write_replaced_file(nullptr, "new"), ENOENT);
  EXPECT_EQ(write_replaced_file(std::string(300, 'a').c_str(), "new"), ENAMETOOLONG);
  EXPECT_EQ(write_replaced_file(std::string(PATH_MAX, 'a').c_str(), "new"), ENAMETOOLONG);
  const std::string most = "./" + std::string(PATH_MAX - 3, '/');
  EXPECT_EQ(write_replaced_file(most.c_str(), "new"), EISDIR);
  EXPECT_EQ(text_of("file"), "kept");
  EXPECT_EQ(files(), (Names{"file", "folder"}));
}

TEST_F(ReplacedFile, LeavesFilesAloneThatHaveItsTemporaryName) {
  const std::string name = "report.tmp" + std::to_string(getpid()) + ".";
  for (int i = 0; i < 5; ++i) make(name + std::to_string(i), "foreign");
  EXPECT_EQ(write_replaced_file("report", "new"), 0);
  EXPECT_EQ(text_of("report"), "new");
  for (int i = 0; i < 5; ++i) EXPECT_EQ(text_of(name + std::to_string(i)), "foreign");
  EXPECT_EQ(files().size(), 6U);
}

TEST_F(ReplacedFile, IsThatToWhichLinksLead) {
  ASSERT_EQ(mkdir("folder", 0700), 0);
  make("folder/report", "old");
  ASSERT_EQ(symlink("folder/second", "first"), 0);
  ASSERT_EQ(symlink("report", "folder/second"), 0);
  EXPECT_EQ(write_replaced_file("first", "new"), 0);
  EXPECT_EQ(text_of("folder/report"), "new");
  const std::string absolute = std::filesystem::current_path() / "folder/report";
  ASSERT_EQ(symlink(absolute.c_str(), "folder/third"), 0);
  EXPECT_EQ(write_replaced_file("folder/third", "newer"), 0);
  EXPECT_EQ(text_of("folder/report"), "newer");
  ASSERT_EQ(symlink("folder/none", "dangling"), 0);
  EXPECT_EQ(write_replaced_file("dangling", "newest"), 0);
  EXPECT_EQ(text_of("folder/none"), "newest");
  for (const char* name : {"first", "folder/second", "folder/third", "dangling"}) {
    EXPECT_TRUE(std::filesystem::is_symlink(name)) << name;
  }
}

TEST_F(ReplacedFile, IsNotLookedForInACircleOfLinks) {
  ASSERT_EQ(symlink("second", "first"), 0);
  ASSERT_EQ(symlink("first", "second"), 0);
  EXPECT_EQ(write_replaced_file("first", "new"), ELOOP);
  EXPECT_EQ(files(), (Names{"first", "second"}));
}

TEST_F(ReplacedFile, IsWrittenDirectlyIfItIsADevice) {
  EXPECT_EQ(write_replaced_file("/dev/full", "new"), ENOSPC);
  EXPECT_EQ(write_replaced_file("/dev/null", "new"), 0);
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/full"));
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

TEST_F(ReplacedFile, IsWrittenDirectlyIfItIsAFifo) {
  ASSERT_EQ(mkfifo("fifo", 0600), 0);
  const int keeper = open("fifo", O_RDWR);  // until all is written, the reader finds no end
  const int end = open("fifo", O_RDONLY);
  std::string read;
  std::thread reader([&read, end] { read = read_late(end); });
  EXPECT_EQ(write_replaced_file("fifo", large_text()), 0);
  close(keeper);
  reader.join();
  EXPECT_EQ(read, large_text());
  EXPECT_TRUE(std::filesystem::is_fifo("fifo"));
}

TEST_F(ReplacedFile, FailsIfItIsAFifoThatNobodyReads) {
  ASSERT_EQ(mkfifo("fifo", 0600), 0);
  EXPECT_EQ(write_replaced_file("fifo", "new"), ENXIO);
}

/** Runs in a process of its own, whose standard output and error are a file. */
void write_between(const char* path) {
  const pid_t child = fork();
  if (child == 0) {
    const int file = open("output", O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(file, STDOUT_FILENO);
    dup2(file, STDERR_FILENO);
    const bool before = write(STDOUT_FILENO, "before ", 7) == 7;
    const int error = write_replaced_file(path, "report ");
    const bool after = write(STDOUT_FILENO, "after", 5) == 5;
    _exit(before && after ? error : 255);
  }
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_EQ(WEXITSTATUS(status), 0) << path;
}

TEST_F(ReplacedFile, LetsTheProgramGoOnWritingItsOutput) {
  ASSERT_EQ(symlink("/dev/stdout", "link"), 0);
  for (const char* path : {"/dev/stdout", "/dev/stderr", "/dev/fd/1", "/proc/self/fd/1", "link"}) {
    write_between(path);
    EXPECT_EQ(text_of("output"), "before report after") << path;
  }
  EXPECT_EQ(write_replaced_file("/dev/fd/999999999", "new"), EBADF);
}

TEST_F(ReplacedFile, IsWholeIfItsDescriptorDoesNotWait) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
  ASSERT_EQ(fcntl(ends[0], F_SETFL, 0), 0);
  std::string read;
  std::thread reader([&] { read = read_late(ends[0]); });
  const std::string path = "/dev/fd/" + std::to_string(ends[1]);
  EXPECT_EQ(write_replaced_file(path.c_str(), large_text()), 0);
  close(ends[1]);
  reader.join();
  EXPECT_EQ(read, large_text());
}

TEST_F(ReplacedFile, IsWholeIfSignalsInterruptIt) {
  struct sigaction interrupt = {};
  interrupt.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGALRM, &interrupt, nullptr), 0);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t reader = fork();
  if (reader == 0) {
    close(ends[1]);
    _exit(read_late(ends[0]) == large_text() ? 0 : 1);
  }
  close(ends[0]);
  const itimerval often = {{0, 1000}, {0, 1000}};
  setitimer(ITIMER_REAL, &often, nullptr);
  const std::string path = "/dev/fd/" + std::to_string(ends[1]);
  EXPECT_EQ(write_replaced_file(path.c_str(), large_text()), 0);
  const itimerval never = {};
  setitimer(ITIMER_REAL, &never, nullptr);
  close(ends[1]);
  int status = -1;
  waitpid(reader, &status, 0);
  EXPECT_EQ(status, 0);
}

/** Sets the number that it is given to the error. */
void* write_with_pending_cancellation(void* error) {
  pthread_cancel(pthread_self());
  *static_cast<int*>(error) = write_replaced_file("report", "new");
  pthread_testcancel();
  return nullptr;
}

TEST_F(ReplacedFile, IsWholeIfItsThreadIsCanceled) {
  pthread_t thread;
  int error = -1;
  ASSERT_EQ(pthread_create(&thread, nullptr, write_with_pending_cancellation, &error), 0);
  void* result = nullptr;
  pthread_join(thread, &result);
  EXPECT_EQ(result, PTHREAD_CANCELED);
  EXPECT_EQ(error, 0);
  EXPECT_EQ(text_of("report"), "new");
  EXPECT_EQ(files(), Names{"report"});
}

TEST_F(ReplacedFile, NeedsNoHeapAndKeepsErrno) {
  errno = EBADF;
  kit::fail_all_requests();
  EXPECT_EQ(write_replaced_file("report", "new"), 0);
  EXPECT_EQ(write_replaced_file("missing/report", "new"), ENOENT);
  EXPECT_EQ(errno, EBADF);
  EXPECT_FALSE(kit::has_failed());
  kit::let_succeed();
}

TEST_F(ReplacedFile, IsToldFromWhatIsNoFile) {
  make("old", "");
  std::filesystem::create_symlink("old", "to_old");
  std::filesystem::create_symlink("new", "to_new");
  std::filesystem::create_symlink("/dev/null", "to_device");
  std::filesystem::create_symlink("loop", "loop");
  for (const char* const file : {"old", "new", "to_old", "to_new"}) {
    EXPECT_TRUE(qk::is_file_to_replace(file)) << file;
  }
  for (const char* const other : {".", "to_device", "/dev/stdout", "/proc/self/fd/1", "loop"}) {
    EXPECT_FALSE(qk::is_file_to_replace(other)) << other;
  }
}

TEST_F(ReplacedFile, IsRemovedByWhoHasWrittenIt) {
  std::filesystem::create_symlink("file", "link");
  qk::FileVersion written = 0;
  EXPECT_EQ(write_replaced_file("link", "text", &written), 0);
  qk::remove_replaced_file("link", written);
  EXPECT_EQ(files(), (std::set<std::string>{"link"}));
}

TEST_F(ReplacedFile, IsNotRemovedOnceItIsAnother) {
  qk::FileVersion first = 0;
  EXPECT_EQ(write_replaced_file("file", "text", &first), 0);
  qk::FileVersion second = 0;
  EXPECT_EQ(write_replaced_file("file", "other text", &second), 0);
  EXPECT_NE(first, second);
  qk::remove_replaced_file("file", first);
  EXPECT_EQ(text_of("file"), "other text");
  qk::remove_replaced_file("file", second);
  qk::remove_replaced_file("file", second);
  EXPECT_EQ(files(), std::set<std::string>());
}

TEST_F(ReplacedFile, HasNoVersionIfItIsADevice) {
  qk::FileVersion written = 0;
  EXPECT_EQ(write_replaced_file("/dev/null", "text", &written), 0);
  EXPECT_EQ(written, 0U);
}

}  // namespace
