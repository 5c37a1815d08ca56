#include "lensserverprocess.h"
#include "lenssignature.h"
#include "testlenses.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using namespace VCam;

namespace {

QString readText(const QString &path)
{
    QFile file(path);
    file.open(QIODevice::ReadOnly);
    return QString::fromLatin1(file.readAll()).trimmed();
}

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
        m_key = readText(m_vector + "/public_key.b64");
        m_signature = readText(m_vector + "/signature.b64");
        m_digest = QCryptographicHash::hash(
            (readText(m_vector + "/checksum.txt") + "signature-vector").toUtf8(), QCryptographicHash::Sha384);
    }

    // Names and places of files take no part; contents do.
    void onlyFileContentsCount()
    {
        QTemporaryDir dir;
        const QString lens = TestLenses::makeLensFolder(dir.path(), "moved");
        QFile::copy(m_vector + "/lens/lens.json", lens + "/lens.json.orig");
        QFile::remove(lens + "/lens.json");
        QDir().mkpath(lens + "/deep/er");
        QVERIFY(QFile::rename(lens + "/lens.json.orig", lens + "/deep/er/renamed.txt"));
        QVERIFY(QFile::rename(lens + "/icon.png", lens + "/deep/icon-elsewhere.png"));
        QVERIFY(verifyLensSignature("signature-vector", lens, m_signature, m_key));

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

    // The packer and the application agree on checksum and signature.
    void packerSignaturesVerify()
    {
        QTemporaryDir dir;
        const QString keyPath = dir.filePath("key.pem");
        const QString publicKey = LensServerProcess::runPacker({"keygen", keyPath}).trimmed();
        QCOMPARE(publicKey.size(), 160);
        const QString lens = TestLenses::makeLensFolder(dir.path(), "packed-lens", 4096);
        QCOMPARE(directoryChecksum(lens), LensServerProcess::runPacker({"checksum", lens}).trimmed());
        const QString signature = TestLenses::sign(lens, keyPath);
        QVERIFY(!signature.isEmpty());
        QVERIFY(verifyLensSignature("packed-lens", lens, signature, publicKey));
        QVERIFY(!verifyLensSignature("packed-lens", lens, signature, m_key)); // another key
        QVERIFY(!verifyLensSignature("packed-lens", lens, m_signature, publicKey));
    }

    void signatureStructure_data()
    {
        QTest::addColumn<QByteArray>("der");
        QTest::addColumn<bool>("valid");
        const QByteArray good = QByteArray::fromBase64(m_signature.toLatin1());
        const auto [r, s] = splitSignature(good);
        QCOMPARE(r.size() <= 48 && s.size() <= 48, true);
        const auto signedInt = [](QByteArray v) { return quint8(v[0]) & 0x80 ? QByteArray(1, '\0') + v : v; };

        QTest::newRow("as signed") << good << true;
        QTest::newRow("re-encoded minimally")
            << derSequence(derInteger(signedInt(r)) + derInteger(signedInt(s))) << true;
        // Loose encodings of the same numbers are refused.
        QTest::newRow("redundant leading zero")
            << derSequence(derInteger(QByteArray(1, '\0') + signedInt(r)) + derInteger(signedInt(s)))
            << false;
        QTest::newRow("byte after the sequence") << good + QByteArray(1, '\0') << false;
        QTest::newRow("byte after s inside the sequence")
            << derSequence(derInteger(signedInt(r)) + derInteger(signedInt(s)) + QByteArray(1, '\0'))
            << false;
        QTest::newRow("negative s") << derSequence(derInteger(signedInt(r)) +
                                                   derInteger(QByteArray(1, '\x80') + s))
                                    << false;
        QTest::newRow("two leading zeros")
            << derSequence(derInteger(QByteArray(2, '\0') + r) + derInteger(signedInt(s))) << false;
        QTest::newRow("r of 49 bytes")
            << derSequence(derInteger(QByteArray(1, '\x01') + r) + derInteger(signedInt(s))) << false;
        QTest::newRow("empty") << QByteArray() << false;
        QTest::newRow("length past the end") << good.left(good.size() - 1) << false;
        QTest::newRow("s missing") << derSequence(derInteger(signedInt(r))) << false;
        QTest::newRow("text") << QByteArray("not a signature at all") << false;
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
