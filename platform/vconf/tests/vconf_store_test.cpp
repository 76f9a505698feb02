// Values and their files: what survives what, who may look, how much fits.
#include <dlog.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <vconf.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vconf-ext.h>
#include <vector>

#include "fresh_store.h"
#include "loop.h"

namespace {

using kavrel_test::Loop;
using kavrel_vconf_test::Forked;
using kavrel_vconf_test::FreshStoreTest;

constexpr char kMemory[] = "memory/kavrel_test/value";
constexpr char kDurable[] = "db/kavrel_test/value";

int IntOf(const char* key) {
  int value = 0;
  const int error = vconf_get_int(key, &value);
  return error != 0 ? error : value;
}

using Lifetime = FreshStoreTest;

TEST_F(Lifetime, ValuesOutliveTheProcessesThatSetThem) {
  Run([] {
    EXPECT_EQ(vconf_set_int(kMemory, 5), 0);
    EXPECT_EQ(vconf_set_int(kDurable, 6), 0);
  });
  Run([] {
    EXPECT_EQ(IntOf(kMemory), 5);
    EXPECT_EQ(IntOf(kDurable), 6);
  });
}

TEST_F(Lifetime, ValuesOutliveAKill) {
  Forked process([] {
    vconf_set_int(kMemory, 5);
    vconf_set_int(kDurable, 6);
    return ::raise(SIGKILL);
  });
  EXPECT_EQ(process.Wait(), -SIGKILL);
  Run([] {
    EXPECT_EQ(IntOf(kMemory), 5);
    EXPECT_EQ(IntOf(kDurable), 6);
  });
}

TEST_F(Lifetime, VolatileValuesEndWithTheRuntimeDirectory) {
  Run([] {
    EXPECT_EQ(vconf_set_int(kMemory, 5), 0);
    EXPECT_EQ(vconf_set_int(kDurable, 6), 0);
  });
  std::filesystem::remove_all(directory_.Path("run"));
  Run([] {
    EXPECT_EQ(IntOf(kMemory), -ENOENT);
    EXPECT_EQ(IntOf(kDurable), 6);
  });
}

// The control page notes the boot that it belongs to.
TEST_F(Lifetime, VolatileValuesEndWithTheBoot) {
  Run([] {
    EXPECT_EQ(vconf_set_int(kMemory, 5), 0);
    EXPECT_EQ(vconf_set_int(kDurable, 6), 0);
  });
  for (const std::string& path : {MemoryFile(".control"), DurableFile(".control")}) {
    const int file = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::pwrite(file, "0", 1, 20), 1);  // within the boot's name
    ::close(file);
  }
  Run([] {
    EXPECT_EQ(IntOf(kMemory), -ENOENT);
    EXPECT_EQ(IntOf(kDurable), 6);
    EXPECT_EQ(vconf_set_int(kMemory, 7), 0);
  });
  Run([] { EXPECT_EQ(IntOf(kMemory), 7); });
}

TEST_F(Lifetime, ProcessesWorkOnWhenTheFilesAreRemoved) {
  Run([this] {
    Loop loop;
    int calls = 0;
    const auto count = [](keynode_t*, void* user_data) { ++*static_cast<int*>(user_data); };
    ASSERT_EQ(vconf_set_int(kMemory, 5), 0);
    ASSERT_EQ(vconf_notify_key_changed(kMemory, count, &calls), 0);
    loop.RunReady();
    std::filesystem::remove_all(directory_.Path("run"));
    EXPECT_EQ(IntOf("memory/kavrel_test/unread"), -ENOENT);
    Run([] {
      EXPECT_EQ(IntOf(kMemory), -ENOENT);
      EXPECT_EQ(vconf_set_int(kMemory, 6), 0);
    });
    EXPECT_TRUE(loop.RunUntil([&] { return calls == 1; }));
    EXPECT_EQ(IntOf(kMemory), 6);
    EXPECT_EQ(vconf_set_int(kMemory, 7), 0);
    EXPECT_TRUE(loop.RunUntil([&] { return calls == 2; }));
    Run([] { EXPECT_EQ(IntOf(kMemory), 7); });
  });
}

using Permissions = FreshStoreTest;

TEST_F(Permissions, AreTheStatedOnesWhateverTheUmask) {
  for (const mode_t mask : {0000u, 0022u, 0077u, 0777u}) {
    Run([mask] {
      ::umask(mask);
      EXPECT_EQ(vconf_set_int(kMemory, 1), 0);
      EXPECT_EQ(vconf_set_int(kDurable, 1), 0);
    });
    int files = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory_.path())) {
      struct stat status {};
      ASSERT_EQ(::lstat(entry.path().c_str(), &status), 0);
      EXPECT_EQ(status.st_mode & 07777, entry.is_directory() ? 0700u : 0600u) << entry.path();
      ++files;
    }
    EXPECT_EQ(files, 12);  // two directories, a store in each, four files a store
    std::filesystem::remove_all(directory_.Path("run"));
    std::filesystem::remove_all(directory_.Path("state"));
  }
}

// Only root can become somebody else; for everybody else the modes above are the test.
TEST_F(Permissions, KeepOtherUsersOut) {
  Run([] {
    EXPECT_EQ(vconf_set_int(kMemory, 1), 0);
    EXPECT_EQ(vconf_set_int(kDurable, 1), 0);
  });
  ASSERT_EQ(::chmod(directory_.path().c_str(), 0755), 0);
  Run([] {
    if (::geteuid() == 0 &&
        (::setresgid(65534, 65534, 65534) != 0 || ::setresuid(65534, 65534, 65534) != 0)) {
      FAIL() << "root cannot change its user";
    }
    const bool is_other = ::geteuid() == 65534;
    EXPECT_EQ(IntOf(kMemory), is_other ? -EACCES : 1);
    EXPECT_EQ(IntOf(kDurable), is_other ? -EACCES : 1);
    EXPECT_EQ(vconf_set_int(kMemory, 2), is_other ? -EACCES : 0);
    Loop loop;
    const auto ignore = [](keynode_t*, void*) {};
    EXPECT_EQ(vconf_notify_key_changed(kMemory, ignore, nullptr), is_other ? -EACCES : 0);
  });
}

TEST_F(Permissions, ADirectoryThatOthersMayWriteIsRefused) {
  std::filesystem::create_directories(directory_.Path("run/vconf"));
  ASSERT_EQ(::chmod(directory_.Path("run/vconf").c_str(), 0777), 0);
  Run([] { EXPECT_EQ(vconf_set_int(kMemory, 1), -EACCES); });
}

TEST_F(Permissions, DescriptorsAreNotInheritedByPrograms) {
  Run([] {
    Loop loop;
    const auto ignore = [](keynode_t*, void*) {};
    ASSERT_EQ(vconf_notify_key_changed(kMemory, ignore, nullptr), 0);
    ASSERT_EQ(vconf_set_int(kMemory, 1), 0);
    ASSERT_EQ(vconf_set_int(kDurable, 1), 0);
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code gone;
      const std::string target = std::filesystem::read_symlink(entry.path(), gone);
      if (target.find("/vconf") == std::string::npos &&
          target.find("anon_inode") == std::string::npos) {
        continue;
      }
      const int fd = std::stoi(entry.path().filename());
      EXPECT_NE(::fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << target;
    }
  });
}

using Limits = FreshStoreTest;

TEST_F(Limits, KeysAndTexts) {
  Run([] {
    const std::string longest_key = "memory/" + std::string(248, 'k');
    const std::string longest_text(std::size_t{1} << 20, 't');
    EXPECT_EQ(vconf_set_str(longest_key.c_str(), longest_text.c_str()), 0);
    char* text = vconf_get_str(longest_key.c_str());
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(text, longest_text);
    std::free(text);
    EXPECT_EQ(vconf_set_str(kMemory, (longest_text + 't').c_str()), -E2BIG);
    EXPECT_EQ(IntOf(kMemory), -ENOENT);
    for (const std::string& bad :
         {longest_key + 'k', "memory/" + std::string(std::size_t{10} * 1024, 'k'),
          std::string("memory/../x"), std::string(""), std::string("memory/"),
          std::string("file/x"), std::string("memory/\xff")}) {
      int value = 0;
      EXPECT_EQ(vconf_set_int(bad.c_str(), 1), -EINVAL);
      EXPECT_EQ(vconf_get_int(bad.c_str(), &value), -EINVAL);
      errno = 0;
      EXPECT_EQ(vconf_get_str(bad.c_str()), nullptr);
      EXPECT_EQ(errno, EINVAL);
      const auto ignore = [](keynode_t*, void*) {};
      EXPECT_EQ(vconf_notify_key_changed(bad.c_str(), ignore, nullptr), -EINVAL);
    }
  });
  // Whatever keys were tried, nothing lies outside the store.
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(directory_.path())) {
    if (!entry.is_directory()) names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"memory.control", "memory.mdb", "memory.mdb-lock",
                                             "memory.wake"}));
}

TEST_F(Limits, AFullStoreRefusesAndKeepsWhatItHas) {
  Run([] {
    const std::string large(std::size_t{1} << 20, 'x');
    int stored = 0;
    int error = 0;
    while (error == 0 && stored < 100) {
      error = vconf_set_str((std::string(kMemory) + std::to_string(stored)).c_str(), large.c_str());
      if (error == 0) ++stored;
    }
    EXPECT_EQ(error, -ENOSPC);
    EXPECT_GT(stored, 50);
    char* text = vconf_get_str((std::string(kMemory) + "0").c_str());
    ASSERT_NE(text, nullptr);
    EXPECT_EQ(text, large);
    std::free(text);
    // Room that is given back can be used again.
    EXPECT_EQ(vconf_ext_unset((std::string(kMemory) + "0").c_str()), 0);
    EXPECT_EQ(vconf_ext_unset((std::string(kMemory) + "1").c_str()), 0);
    EXPECT_EQ(vconf_set_int(kMemory, 1), 0);
    EXPECT_EQ(vconf_set_int(kMemory, 2), 0);
    EXPECT_EQ(vconf_set_str((std::string(kMemory) + "0").c_str(), large.c_str()), 0);
  });
}

TEST_F(Limits, WithoutADescriptorToSpareEverythingFailsAndLaterWorks) {
  Run([] {
    // A sanitizer that checks a call for the first time needs descriptors itself.
    dlog_print(DLOG_ERROR, "vconf", "%s", "two refusals follow");
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit none = before;
    none.rlim_cur = 6;  // fewer than a store needs
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(vconf_set_int(kMemory, 1), -EMFILE);
    EXPECT_EQ(IntOf(kMemory), -EMFILE);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(vconf_set_int(kMemory, 1), 0);
    EXPECT_EQ(IntOf(kMemory), 1);
  });
}

using Extensions = FreshStoreTest;

TEST_F(Extensions, ReadValueTypeAndRevisionTogether) {
  Run([] {
    vconf_ext_value value{};
    EXPECT_EQ(vconf_ext_get(kMemory, &value), -ENOENT);
    EXPECT_EQ(vconf_ext_get(kMemory, nullptr), -EINVAL);
    ASSERT_EQ(vconf_set_str(kMemory, "locked"), 0);
    ASSERT_EQ(vconf_ext_get(kMemory, &value), 0);
    EXPECT_EQ(value.type, VCONF_TYPE_STRING);
    EXPECT_STREQ(value.text, "locked");
    EXPECT_EQ(value.text_size, 6u);
    const uint64_t first = value.revision;
    EXPECT_GE(first, 1u);
    vconf_ext_value_clear(&value);
    EXPECT_EQ(value.text, nullptr);
    ASSERT_EQ(vconf_ext_set_dbl(kMemory, 2.5), 0);
    double number = 0;
    EXPECT_EQ(vconf_ext_get_dbl(kMemory, &number), 0);
    EXPECT_EQ(number, 2.5);
    EXPECT_EQ(vconf_get_str(kMemory), nullptr);
    ASSERT_EQ(vconf_ext_get(kMemory, &value), 0);
    EXPECT_EQ(value.number, 2.5);
    EXPECT_GT(value.revision, first);
    EXPECT_EQ(IntOf(kMemory), -ENOMSG);
    ASSERT_EQ(vconf_set_int(kMemory, 1), 0);
    EXPECT_EQ(vconf_ext_get_dbl(kMemory, &number), -ENOMSG);
  });
}

TEST_F(Extensions, RemoveAKey) {
  Run([] {
    EXPECT_EQ(vconf_ext_unset(kMemory), -ENOENT);
    ASSERT_EQ(vconf_set_int(kMemory, 1), 0);
    EXPECT_EQ(IntOf(kMemory), 1);
    EXPECT_EQ(vconf_ext_unset(kMemory), 0);
    EXPECT_EQ(IntOf(kMemory), -ENOENT);
    EXPECT_EQ(vconf_ext_unset(kMemory), -ENOENT);
  });
}

TEST_F(Extensions, ListKeysInOrder) {
  Run([] {
    using Keys = std::vector<std::string>;
    const auto collect = [](const char* key, const vconf_ext_value* value, void* user_data) {
      EXPECT_GE(value->revision, 1u);
      static_cast<Keys*>(user_data)->push_back(key);
      // The store may be used meanwhile.
      EXPECT_EQ(vconf_set_int("db/z", 1), 0);
      return 0;
    };
    Keys keys;
    EXPECT_EQ(vconf_ext_list("", collect, &keys), 0);
    EXPECT_TRUE(keys.empty());
    for (const char* key : {"memory/b", "db/c", "memory/a", "db/a", "memory/a/b"}) {
      ASSERT_EQ(vconf_set_int(key, 1), 0);
    }
    EXPECT_EQ(vconf_ext_list("", collect, &keys), 0);
    EXPECT_EQ(keys, (Keys{"db/a", "db/c", "memory/a", "memory/a/b", "memory/b"}));
    EXPECT_EQ(IntOf("db/z"), 1);
    keys.clear();
    EXPECT_EQ(vconf_ext_list("memory/a", collect, &keys), 0);
    EXPECT_EQ(keys, (Keys{"memory/a", "memory/a/b"}));
    keys.clear();
    EXPECT_EQ(vconf_ext_list("nothing", collect, &keys), 0);
    EXPECT_TRUE(keys.empty());
    const auto stop = [](const char*, const vconf_ext_value*, void*) { return 9; };
    EXPECT_EQ(vconf_ext_list("", stop, nullptr), 9);
    EXPECT_EQ(vconf_ext_list(nullptr, collect, &keys), -EINVAL);
    EXPECT_EQ(vconf_ext_list("", nullptr, nullptr), -EINVAL);
  });
}

TEST_F(Extensions, NameTheDirectories) {
  Run([this] {
    EXPECT_EQ(std::string(vconf_ext_store_directory("memory")), directory_.Path("run/vconf"));
    EXPECT_EQ(std::string(vconf_ext_store_directory("db")), directory_.Path("state/vconf"));
    EXPECT_EQ(vconf_ext_store_directory("file"), nullptr);
    EXPECT_EQ(vconf_ext_store_directory(nullptr), nullptr);
    EXPECT_FALSE(Exists(directory_.Path("run")));
  });
}

using ForkTest = FreshStoreTest;

TEST_F(ForkTest, AChildHasConnectionsOfItsOwnAndHarmsNobody) {
  Run([] {
    Loop loop;
    int calls = 0;
    const auto count = [](keynode_t*, void* user_data) { ++*static_cast<int*>(user_data); };
    ASSERT_EQ(vconf_set_int(kMemory, 1), 0);
    ASSERT_EQ(vconf_set_int(kDurable, 1), 0);
    ASSERT_EQ(vconf_notify_key_changed(kMemory, count, &calls), 0);
    loop.RunReady();
    Run([&] {
      EXPECT_EQ(IntOf(kMemory), 1);
      EXPECT_EQ(vconf_set_int(kMemory, 2), 0);
      EXPECT_EQ(vconf_set_int(kDurable, 2), 0);
      // The parent's registration is not this process's, its loop delivers nothing here.
      EXPECT_EQ(vconf_ignore_key_changed(kMemory, count), -ENOENT);
      loop.RunReady();
      EXPECT_EQ(calls, 0);
      Loop own;
      ASSERT_EQ(vconf_notify_key_changed(kMemory, count, &calls), 0);
      EXPECT_EQ(vconf_set_int(kMemory, 3), 0);
      EXPECT_TRUE(own.RunUntil([&] { return calls == 1; }));
    });
    EXPECT_TRUE(loop.RunUntil([&] { return calls > 0; }));
    EXPECT_EQ(IntOf(kMemory), 3);
    EXPECT_EQ(IntOf(kDurable), 2);
    const int before = calls;
    EXPECT_EQ(vconf_set_int(kMemory, 4), 0);
    EXPECT_TRUE(loop.RunUntil([&] { return calls > before; }));
    EXPECT_EQ(vconf_ignore_key_changed(kMemory, count), 0);
  });
}

// A forked process that lives on must not keep the kernel from telling of its parent's end.
TEST_F(ForkTest, AChildDoesNotHideThatItsParentWasKilledInMidSet) {
  Run([] {
    for (int round = 0; round < 20; ++round) {
      ASSERT_EQ(vconf_set_int(kMemory, round), 0);
      Run([&] { EXPECT_EQ(IntOf(kMemory), round); });
    }
  });
}

TEST_F(ForkTest, ForksWhileOtherThreadsAreInTheStore) {
  Run([] {
    std::atomic<bool> ends = false;
    std::vector<std::thread> threads;
    threads.reserve(3);
    for (int number = 0; number < 3; ++number) {
      threads.emplace_back([&, number] {
        const std::string key = std::string(kMemory) + std::to_string(number);
        for (int value = 0; !ends; ++value) {
          EXPECT_EQ(vconf_set_int(key.c_str(), value), 0);
          EXPECT_EQ(IntOf(key.c_str()), value);
        }
      });
    }
    for (int round = 0; round < 30; ++round) {
      Forked child([] { return vconf_set_int(kDurable, 1) == 0 && IntOf(kDurable) == 1 ? 0 : 1; });
      EXPECT_EQ(child.Wait(), 0);
    }
    ends = true;
    for (std::thread& thread : threads) thread.join();
  });
}

}  // namespace
