#include <QElapsedTimer>
#include <QSignalSpy>
#include <QtTest>
#include <actionthrottler.h>
#include <realtimer.h>

using namespace VCam;

class TestTimers : public QObject
{
    Q_OBJECT
private slots:
    void plainThrottleEmitsAtStartAndOnceAtEnd()
    {
        ActionThrottler throttler(100, ActionThrottler::Plain);
        QSignalSpy triggered(&throttler, &ActionThrottler::triggered);
        for (int i = 0; i < 10; ++i)
            throttler.trigger();
        QCOMPARE(triggered.count(), 1);
        QTest::qWait(350);
        QCOMPARE(triggered.count(), 2);
    }

    void singleTriggerEmitsOnce()
    {
        ActionThrottler throttler(50, ActionThrottler::Plain);
        QSignalSpy triggered(&throttler, &ActionThrottler::triggered);
        throttler.trigger();
        QTest::qWait(200);
        QCOMPARE(triggered.count(), 1);
    }

    void restartingThrottleMeasuresFromTheLastRequest()
    {
        ActionThrottler throttler(150, ActionThrottler::RestartOnRequest);
        QSignalSpy triggered(&throttler, &ActionThrottler::triggered);
        QElapsedTimer clock;
        clock.start();
        throttler.trigger();
        qint64 lastRequest = 0;
        // Keep requesting for longer than one interval: no emission meanwhile.
        while (clock.elapsed() < 400) {
            QTest::qWait(30);
            throttler.trigger();
            lastRequest = clock.elapsed();
        }
        QCOMPARE(triggered.count(), 1);
        QTRY_COMPARE_WITH_TIMEOUT(triggered.count(), 2, 2000);
        QVERIFY2(clock.elapsed() - lastRequest >= 140, "trailing emission came before one interval passed");
    }

    void realTimerRepeats()
    {
        RealTimer timer;
        QSignalSpy timeouts(&timer, &RealTimer::timeout);
        timer.start(40);
        QTRY_VERIFY_WITH_TIMEOUT(timeouts.count() >= 3, 2000);
        QVERIFY(timer.isActive());
    }

    void realTimerFiresOnceWhenTheDeadlinePassedDuringSleep()
    {
        RealTimer timer;
        QSignalSpy timeouts(&timer, &RealTimer::timeout);
        timer.start(60000);
        timer.shiftDeadline(-120000); // the computer slept for two minutes
        timer.onApplicationStateChanged(Qt::ApplicationActive);
        QCOMPARE(timeouts.count(), 1);
        QVERIFY(timer.isActive());
        QVERIFY(timer.remainingTime() > 59000); // restarted with the full interval
    }

    void realTimerCorrectsOnlyLargeDeviations()
    {
        RealTimer timer;
        QSignalSpy timeouts(&timer, &RealTimer::timeout);
        timer.start(60000);
        timer.shiftDeadline(-500);
        timer.onApplicationStateChanged(Qt::ApplicationActive);
        QVERIFY(timer.remainingTime() > 59000); // within a second: left alone

        timer.shiftDeadline(-20000);
        timer.onApplicationStateChanged(Qt::ApplicationActive);
        QVERIFY2(timer.remainingTime() < 40000 && timer.remainingTime() > 38000,
                 qPrintable(QString::number(timer.remainingTime())));
        QCOMPARE(timeouts.count(), 0);
    }

    void realTimerIgnoresSuspendAndStoppedTimer()
    {
        RealTimer timer;
        QSignalSpy timeouts(&timer, &RealTimer::timeout);
        timer.start(60000);
        timer.shiftDeadline(-120000);
        timer.onApplicationStateChanged(Qt::ApplicationSuspended);
        QCOMPARE(timeouts.count(), 0);
        timer.stop();
        timer.onApplicationStateChanged(Qt::ApplicationActive);
        QCOMPARE(timeouts.count(), 0);
    }
};

QTEST_GUILESS_MAIN(TestTimers)
#include "tst_timers.moc"
