// The panel's codes under a log-in/bye loop: each stays up its minimum time,
// and a burst of session ends makes one change, not one per session.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QSignalSpy>
#include <QTest>

#include "CodeKeeper.h"

namespace {

constexpr int kMinShowMs = 400;

void ensureApp() {
    static int argc = 1;
    static char name[] = "test_code_keeper";
    static char* argv[] = {name, nullptr};
    static QCoreApplication* app = QCoreApplication::instance() ? nullptr : new QCoreApplication(argc, argv);
    (void)app;
}

TEST(CodeKeeper, SessionEndsChangeCodeAndPasscodeNoSoonerThanTheMinimum) {
    ensureApp();
    receiver::CodeKeeper keeper(0x0a000001, QString(), 0, nullptr, kMinShowMs);
    QSignalSpy codes(&keeper, &receiver::CodeKeeper::codeChanged);
    QSignalSpy rotations(&keeper, &receiver::CodeKeeper::passcodeRotationWanted);
    QElapsedTimer clock;
    clock.start();
    // No passcode yet (none registered): nothing to rotate.
    keeper.sessionEnded();
    keeper.setPasscode(QStringLiteral("AB12"));
    EXPECT_TRUE(keeper.matches(QStringLiteral("ab12")));
    const QString first = keeper.code();

    // A log-in/bye loop: many session ends, one change each, after the minimum.
    for (int i = 0; i < 10; ++i) keeper.sessionEnded();
    EXPECT_EQ(codes.count(), 0);
    ASSERT_TRUE(QTest::qWaitFor([&] { return codes.count() == 1 && rotations.count() == 1; }, 5000));
    EXPECT_GE(clock.elapsed(), kMinShowMs - 50);
    EXPECT_NE(keeper.code(), first);
    EXPECT_FALSE(keeper.matches(first));
    QTest::qWait(kMinShowMs / 2);
    EXPECT_EQ(codes.count(), 1);
    EXPECT_EQ(rotations.count(), 1);

    // The rotation counts from when it was asked: ending again before the
    // service answered waits for the minimum once more.
    keeper.sessionEnded();
    EXPECT_EQ(rotations.count(), 1);
    keeper.setPasscode(QStringLiteral("CD34"));
    EXPECT_EQ(rotations.count(), 1);
    ASSERT_TRUE(QTest::qWaitFor([&] { return rotations.count() == 2; }, 5000));
    EXPECT_TRUE(keeper.matches(QStringLiteral("CD34")));
    EXPECT_FALSE(keeper.matches(QStringLiteral("AB12")));

    // A fixed code never changes; its passcode still rotates.
    receiver::CodeKeeper fixed(0x0a000001, QStringLiteral("lab-1"), 0, nullptr, 0);
    QSignalSpy fixedCodes(&fixed, &receiver::CodeKeeper::codeChanged);
    QSignalSpy fixedRotations(&fixed, &receiver::CodeKeeper::passcodeRotationWanted);
    fixed.setPasscode(QStringLiteral("EF56"));
    fixed.sessionEnded();
    EXPECT_EQ(fixed.code(), QStringLiteral("1AB1"));  // as typed codes are read
    EXPECT_EQ(fixedCodes.count(), 0);
    EXPECT_EQ(fixedRotations.count(), 1);
}

}  // namespace
