#include "platform/NotificationCenter.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "platform/Dispatch.h"

using namespace std::chrono_literals;

namespace qm {
namespace {

TEST(NotificationCenter, DeliversByNameAndSender) {
    NotificationCenter center;
    int sender = 0;
    int otherSender = 0;
    std::vector<std::string> received;
    auto anySender = center.addObserver("changed", nullptr, [&](const Notification& n) {
        received.push_back("any:" + std::any_cast<std::string>(n.userInfo.at("what")));
    });
    auto oneSender = center.addObserver("changed", &sender, [&](const Notification& n) {
        EXPECT_EQ(n.object, &sender);
        received.push_back("one:" + std::any_cast<std::string>(n.userInfo.at("what")));
    });
    auto everyName = center.addObserver("", &otherSender, [&](const Notification& n) {
        received.push_back("every:" + n.name);
    });

    center.post("changed", &sender, {{"what", std::string("a")}});
    center.post("changed", &otherSender, {{"what", std::string("b")}});
    center.post("other", &otherSender);
    center.post("other", &sender);

    EXPECT_EQ(received, (std::vector<std::string>{"any:a", "one:a", "any:b", "every:changed", "every:other"}));
}

TEST(NotificationCenter, TokenRemovalDuringPostIsSafe) {
    NotificationCenter center;
    std::vector<std::string> received;
    ObserverToken second;
    ObserverToken self;
    ObserverToken added;
    auto first = center.addObserver("n", nullptr, [&](const Notification&) {
        received.push_back("first");
        second.reset();  // not reached yet in this post: skipped
        if (!added) added = center.addObserver("n", nullptr, [&](const Notification&) { received.push_back("added"); });
    });
    second = center.addObserver("n", nullptr, [&](const Notification&) { received.push_back("second"); });
    self = center.addObserver("n", nullptr, [&](const Notification&) {
        received.push_back("self");
        self.reset();
    });

    center.post("n");
    EXPECT_EQ(received, (std::vector<std::string>{"first", "self"}));
    received.clear();
    center.post("n");
    EXPECT_EQ(received, (std::vector<std::string>{"first", "added"}));

    received.clear();
    first.reset();
    added.reset();
    center.post("n");
    EXPECT_TRUE(received.empty());
}

TEST(NotificationCenter, ObserversComeAndGoWhileAnotherThreadPosts) {
    NotificationCenter center;
    std::atomic<bool> stop{false};
    std::atomic<long> delivered{0};
    DispatchGroup poster;
    poster.async(DispatchQueue::global(), [&] {
        while (!stop) center.post("tick");
    });
    for (int i = 0; i < 2000; ++i) {
        auto token = center.addObserver("tick", nullptr, [&](const Notification&) { ++delivered; });
    }
    stop = true;
    ASSERT_TRUE(poster.wait(30s));
    long settled = delivered;
    center.post("tick");
    EXPECT_EQ(delivered, settled);
}

TEST(NotificationCenter, PostOnMainQueueDeliversFromTheMainLoop) {
    MainLoop::drain();
    NotificationCenter center;
    std::atomic<bool> posted{false};
    bool deliveredOnMain = false;
    int deliveries = 0;
    auto token = center.addObserver("later", nullptr, [&](const Notification&) {
        deliveredOnMain = MainLoop::isMainThread();
        ++deliveries;
    });
    DispatchQueue::global().async([&] {
        center.postOnMainQueue("later");
        posted = true;
    });
    ASSERT_TRUE(MainLoop::runUntil([&] { return posted.load(); }, 30s));
    MainLoop::drain();
    EXPECT_EQ(deliveries, 1);
    EXPECT_TRUE(deliveredOnMain);
}

}  // namespace
}  // namespace qm
