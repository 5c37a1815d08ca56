// The single-instance guard across real processes: a second holder is
// refused while the first lives, and the first start after a holder was
// killed outright runs.
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

namespace {

class Holder
{
public:
    explicit Holder(const QString &runtimeDir)
    {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("XDG_RUNTIME_DIR", runtimeDir);
        process.setProcessEnvironment(env);
        process.setProgram(QStringLiteral(GLINT_INSTANCE_HOLDER));
        process.setArguments({QStringLiteral("glint-camera-guard-test")});
    }
    ~Holder()
    {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished(5000);
        }
    }
    // "running" or "refused", or empty when the holder said nothing in time.
    QString answer()
    {
        process.start();
        if (!process.waitForStarted(5000))
            return {};
        QElapsedTimer clock;
        clock.start();
        while (!process.canReadLine() && clock.elapsed() < 10000)
            process.waitForReadyRead(100);
        return QString::fromLatin1(process.readLine()).trimmed();
    }

    QProcess process;
};

} // namespace

class TestSingleInstance : public QObject
{
    Q_OBJECT
    QTemporaryDir runtime;

private slots:
    void initTestCase()
    {
        QVERIFY(runtime.isValid());
        QFile::setPermissions(runtime.path(),
                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
    }

    void killedHolderNeverLocksTheNextStartOut()
    {
        for (int round = 0; round < 20; ++round) {
            Holder holder(runtime.path());
            QCOMPARE(holder.answer(), QStringLiteral("running"));
            holder.process.kill(); // SIGKILL: no clean-up of any kind
            QVERIFY(holder.process.waitForFinished(5000));
        }
        Holder after(runtime.path());
        QCOMPARE(after.answer(), QStringLiteral("running"));
    }
};

QTEST_GUILESS_MAIN(TestSingleInstance)
#include "tst_singleinstance.moc"
