// The single-instance guard across real processes: the first start after a
// holder was killed outright runs, again and again.
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

class TestSingleInstance : public QObject
{
    Q_OBJECT
    QTemporaryDir runtime;

    // Starts a holder of the guard; its answer is "running" or "refused", or
    // empty when it said nothing in time.
    QString startHolder(QProcess &holder)
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_RUNTIME_DIR", runtime.path());
        holder.setProcessEnvironment(env);
        holder.start(QStringLiteral(GLINT_INSTANCE_HOLDER), {QStringLiteral("glint-camera-guard-test")});
        QElapsedTimer clock;
        clock.start();
        while (holder.waitForStarted(5000) && !holder.canReadLine() && clock.elapsed() < 10000)
            holder.waitForReadyRead(100);
        return QString::fromLatin1(holder.readLine()).trimmed();
    }

private slots:
    void killedHolderNeverLocksTheNextStartOut()
    {
        QVERIFY(runtime.isValid());
        QFile::setPermissions(runtime.path(),
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        for (int round = 0; round < 20; ++round) {
            QProcess holder;
            QCOMPARE(startHolder(holder), QStringLiteral("running"));
            holder.kill(); // SIGKILL: no clean-up of any kind
            QVERIFY(holder.waitForFinished(5000));
        }
        QProcess after;
        QCOMPARE(startHolder(after), QStringLiteral("running"));
        after.kill();
        after.waitForFinished(5000);
    }
};

QTEST_GUILESS_MAIN(TestSingleInstance)
#include "tst_singleinstance.moc"
