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
        throttler.trigger();
        QTest::qWait(250);
        QCOMPARE(triggered.count(), 1); // a lone request: no trailing emission
        for (int i = 0; i < 10; ++i)
            throttler.trigger();
        QCOMPARE(triggered.count(), 2);
        QTest::qWait(350);
        QCOMPARE(triggered.count(), 3);
    }

    void restartingThrottleMeasuresFromTheLastRequest()
    {
        ActionThrottler throttler(150, ActionThrottler::RestartOnRequest);
        QSignalSpy triggered(&throttler, &ActionThrottler::triggered);
        QElapsedTimer clock;
        clock.start();
        qint64 lastRequest = 0;
        throttler.trigger();
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

    // After a sleep the application becomes active again: a deadline that
    // passed fires once and restarts with the full interval; a large drift is
    // corrected; small drifts, suspension and a stopped timer are left alone.
    void realTimerCatchesUpAfterSleep()
    {
        const auto wake = [](qint64 shift, Qt::ApplicationState state, bool stopped = false) {
            RealTimer timer;
            QSignalSpy fired(&timer, &RealTimer::timeout);
            timer.start(60000);
            timer.shiftDeadline(shift);
            if (stopped)
                timer.stop();
            timer.onApplicationStateChanged(state);
            return qMakePair(fired.count(), timer.isActive() ? timer.remainingTime() : -1);
        };
        const auto slept = wake(-120000, Qt::ApplicationActive), small = wake(-500, Qt::ApplicationActive),
                   drifted = wake(-21000, Qt::ApplicationActive);
        QVERIFY2(slept.first == 1 && slept.second > 59000, qPrintable(QString::number(slept.second)));
        QVERIFY(small.first == 0 && small.second > 59000);
        QVERIFY2(drifted.first == 0 && drifted.second < 40000 && drifted.second > 38000,
                 qPrintable(QString::number(drifted.second)));
        QCOMPARE(wake(-120000, Qt::ApplicationSuspended).first, 0);
        QCOMPARE(wake(-120000, Qt::ApplicationActive, true), qMakePair(0, -1));
    }
};

QTEST_GUILESS_MAIN(TestTimers)
#include "tst_timers.moc"
