// The key recorder behind the hotkey fields: what a press reports.
#include <QKeyEvent>
#include <QSignalSpy>
#include <QtTest>
#include <keyhelper.h>

using namespace VCam;

class TestKeyHelper : public QObject
{
    Q_OBJECT

    static bool press(KeyHelper &helper, int key, Qt::KeyboardModifiers modifiers)
    {
        QObject window;
        QKeyEvent event(QEvent::KeyPress, key, modifiers);
        return helper.eventFilter(&window, &event);
    }

private slots:
    void recordsClearsAndCancels()
    {
        KeyHelper helper;
        QSignalSpy recorded(&helper, &KeyHelper::keySequenceRecorded);
        // Not recording: keys pass to the window.
        QVERIFY(!press(helper, Qt::Key_A, Qt::ControlModifier));

        helper.setRecording(true);
        QVERIFY(press(helper, Qt::Key_Control, Qt::ControlModifier)); // modifiers alone wait
        QVERIFY(helper.recording());
        QVERIFY(press(helper, Qt::Key_Exclam, Qt::ControlModifier | Qt::ShiftModifier));
        QVERIFY(!helper.recording());
        QCOMPARE(recorded.takeFirst().at(0).toString(), QString("Ctrl+Shift+!"));

        helper.setRecording(true);
        QVERIFY(press(helper, Qt::Key_Backspace, Qt::NoModifier)); // clears
        QCOMPARE(recorded.takeFirst().at(0).toString(), QString());

        helper.setRecording(true);
        QVERIFY(press(helper, Qt::Key_Escape, Qt::NoModifier)); // cancels: nothing reported
        QVERIFY(!helper.recording());
        QVERIFY(recorded.isEmpty());

        helper.setRecording(true);
        QVERIFY(press(helper, Qt::Key_Backspace, Qt::ControlModifier)); // a real binding
        QCOMPARE(recorded.takeFirst().at(0).toString(), QString("Ctrl+Backspace"));
    }
};

QTEST_MAIN(TestKeyHelper)
#include "tst_keyhelper.moc"
