// Whom a process deals with.
#include "credentials.h"

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "hostile_test.h"

namespace rpc_test {

bool IsTrustedBy(uid_t own, const std::string& allowed, uid_t uid) {
  return kavrel_rpc::TrustedUsers(own, allowed).Contains(uid);
}

}  // namespace rpc_test

namespace {

using rpc_test::IsTrustedBy;

TEST(TrustedUsers, AreOneselfAndRoot) {
  EXPECT_TRUE(IsTrustedBy(1000, "", 1000));
  EXPECT_TRUE(IsTrustedBy(1000, "", 0));
  EXPECT_FALSE(IsTrustedBy(1000, "", 1001));
  EXPECT_FALSE(IsTrustedBy(0, "", 1000));
}

TEST(TrustedUsers, AreThoseOnTheList) {
  EXPECT_TRUE(IsTrustedBy(1, "5,7,4294967294", 7));
  EXPECT_TRUE(IsTrustedBy(1, "5,7,4294967294", 4294967294U));
  EXPECT_FALSE(IsTrustedBy(1, "5,7", 6));
  EXPECT_FALSE(IsTrustedBy(1, "57", 5));
}

TEST(TrustedUsers, IgnoresWhatIsNoUserAndSaysSo) {
  rpc_test::TakeLog();
  EXPECT_TRUE(IsTrustedBy(1, "5,x,,-1,4294967295,4294967296,0x7,7 ,9", 9));
  EXPECT_EQ(rpc_test::CountLog("is not a user id"), 7U);
  for (const uid_t uid : {7U, 4294967295U}) {
    EXPECT_FALSE(IsTrustedBy(1, "x,-1,4294967295,4294967296,0x7,7 ", uid));
  }
}

TEST(PeerCredentials, AreTheKernels) {
  int pair[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), 0);
  const auto peer = kavrel_rpc::PeerCredentials(pair[0]);
  ASSERT_TRUE(peer);
  EXPECT_EQ(peer->uid, ::geteuid());
  EXPECT_EQ(peer->pid, ::getpid());
  ::close(pair[0]);
  EXPECT_FALSE(kavrel_rpc::PeerCredentials(pair[0])) << "no socket is a stranger";
  ::close(pair[1]);
}

}  // namespace
