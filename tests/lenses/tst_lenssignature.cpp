#include "lensserverprocess.h"
#include "lenssignature.h"
#include "testlenses.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>
#include <xwindowdriver.h>

using namespace VCam;

namespace {

QByteArray derInteger(const QByteArray &value)
{
    return QByteArray(1, 0x02) + QByteArray(1, char(value.size())) + value;
}

QByteArray derSequence(const QByteArray &content)
{
    return QByteArray(1, 0x30) + QByteArray(1, char(content.size())) + content;
}

// r and s of a DER signature (each without its leading zero).
QPair<QByteArray, QByteArray> splitSignature(const QByteArray &der)
{
    int pos = 2;
    QByteArray parts[2];
    for (auto &part : parts) {
        const int length = quint8(der[pos + 1]);
        part = der.mid(pos + 2, length);
        pos += 2 + length;
        if (part.startsWith('\0'))
            part.remove(0, 1);
    }
    return {parts[0], parts[1]};
}

} // namespace

class TestLensSignature : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        m_vector = TestLenses::vectorDir();
        m_key = XWindowDriver::readFile(m_vector + "/public_key.b64").trimmed();
        m_signature = XWindowDriver::readFile(m_vector + "/signature.b64").trimmed();
        m_digest = QCryptographicHash::hash(
            (XWindowDriver::readFile(m_vector + "/checksum.txt").trimmed() + "signature-vector").toUtf8(),
            QCryptographicHash::Sha384);
    }

    // Names and places of files take no part; contents, the lens id and the
    // key do. The packer computes the same checksum.
    void onlyFileContentsCount()
    {
        QTemporaryDir dir;
        const QString lens = TestLenses::makeLensFolder(dir.path(), "moved", 4096);
        QCOMPARE(directoryChecksum(lens), LensServerProcess::runPacker({"checksum", lens}).trimmed());
        QFile::remove(lens + "/blob.bin");
        QFile::remove(lens + "/lens.json");
        QDir().mkpath(lens + "/deep/er");
        QVERIFY(QFile::copy(m_vector + "/lens/lens.json", lens + "/deep/er/renamed.txt"));
        QVERIFY(QFile::rename(lens + "/icon.png", lens + "/deep/icon-elsewhere.png"));
        QVERIFY(verifyLensSignature("signature-vector", lens, m_signature, m_key));
        QVERIFY(!verifyLensSignature("another-lens", lens, m_signature, m_key));
        const QString otherKey = LensServerProcess::runPacker({"keygen", dir.filePath("key.pem")}).trimmed();
        QVERIFY(!verifyLensSignature("signature-vector", lens, m_signature, otherKey));

        QFile file(lens + "/deep/icon-elsewhere.png");
        QVERIFY(file.open(QIODevice::ReadWrite));
        file.seek(40);
        const char byte = file.peek(1).at(0);
        file.write(QByteArray(1, char(byte ^ 0x01)));
        file.close();
        QVERIFY(!verifyLensSignature("signature-vector", lens, m_signature, m_key));
        QVERIFY(QFile::link("/etc/hostname", lens + "/outside"));
        QVERIFY(directoryChecksum(lens).isEmpty()); // links make a folder unverifiable
    }

    void signatureStructure_data()
    {
        QTest::addColumn<QByteArray>("der");
        QTest::addColumn<bool>("valid");
        const QByteArray good = QByteArray::fromBase64(m_signature.toLatin1());
        const auto [r, s] = splitSignature(good);
        const auto signedInt = [](QByteArray v) { return quint8(v[0]) & 0x80 ? QByteArray(1, '\0') + v : v; };

        const QByteArray R = signedInt(r), S = signedInt(s), zero(1, '\0');
        const auto der = [](const QByteArray &a, const QByteArray &b, const QByteArray &tail = {}) {
            return derSequence(derInteger(a) + derInteger(b) + tail);
        };
        QTest::newRow("as signed") << good << true;
        QTest::newRow("re-encoded minimally") << der(R, S) << true;
        // Loose encodings of the same numbers are refused.
        QTest::newRow("redundant leading zero") << der(zero + R, S) << false;
        QTest::newRow("byte after the sequence") << good + zero << false;
        QTest::newRow("byte after s inside the sequence") << der(R, S, zero) << false;
        QTest::newRow("negative s") << der(R, QByteArray(1, '\x80') + s) << false;
        QTest::newRow("r of 49 bytes") << der(QByteArray(1, '\x01') + r, S) << false;
        QTest::newRow("empty") << QByteArray() << false;
        QTest::newRow("length past the end") << good.left(good.size() - 1) << false;
    }

    void signatureStructure()
    {
        QFETCH(QByteArray, der);
        QFETCH(bool, valid);
        QCOMPARE(verifyDigestSignature(m_digest, der, QByteArray::fromBase64(m_key.toLatin1())), valid);
    }

private:
    QString m_vector;
    QString m_key;
    QString m_signature;
    QByteArray m_digest;
};

QTEST_GUILESS_MAIN(TestLensSignature)
#include "tst_lenssignature.moc"
