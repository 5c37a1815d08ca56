#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>
#include <algorithm>
#include <condition_variable>
#include <httplib.h>
#include <mutex>
#include <thread>

// An HTTP server on a free loopback port, on a thread of its own, that
// answers each path with a canned response and records what it received.
// For answers the lens server would never give (garbage, crafted archives,
// silence) and for clients that block their thread while they wait.
class HttpFixture
{
public:
    struct Response
    {
        Response(int status = 200, const QByteArray &body = {}) : status(status), body(body) {}
        int status;
        QByteArray body;
        QByteArray contentType = "application/json";
        bool silent = false; // accept the request, never answer
        int delayMs = 0;
        bool trickle = false; // promise a long body, send one byte every 100 ms
        QByteArray cacheControl;
    };
    struct Received
    {
        QByteArray target;                    // path and query
        QMap<QByteArray, QByteArray> headers; // lower-case names
        QByteArray body;                      // of a form, its parts' contents one after another
    };

    HttpFixture()
    {
        // One request per connection, so stopping never waits for an idle client.
        m_server.set_keep_alive_max_count(1);
        const auto handler = [this](const httplib::Request &request, httplib::Response &response) {
            answer(request, response);
        };
        m_server.Get(".*", handler).Post(".*", handler);
        m_port = m_server.bind_to_any_port("127.0.0.1");
        m_thread = std::thread([this] { m_server.listen_after_bind(); });
        while (!m_server.is_running())
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    ~HttpFixture()
    {
        locked([this] { m_closed = true; });
        m_closing.notify_all();
        m_server.stop();
        m_thread.join();
    }

    QString url(const QString &path = QString()) const
    {
        return QStringLiteral("http://127.0.0.1:%1%2").arg(m_port).arg(path);
    }
    void route(const QByteArray &path, const Response &response)
    {
        locked([&] { m_routes[path] = response; });
    }
    void route(const QByteArray &path, int status, const QByteArray &body) { route(path, {status, body}); }
    QList<Received> received() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_received;
    }
    int count(const QByteArray &path) const
    {
        const QList<Received> all = received();
        return int(
            std::count_if(all.begin(), all.end(), [&](auto &r) { return r.target.split('?')[0] == path; }));
    }
    void reset()
    {
        locked([this] { m_routes.clear(), m_received.clear(); });
    }

private:
    template <typename F> void locked(F f)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        f();
    }
    // Waits up to ms, or until the fixture closes; false once it closes.
    bool pause(int ms)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return !m_closing.wait_for(lock, std::chrono::milliseconds(ms), [this] { return m_closed; });
    }
    void answer(const httplib::Request &request, httplib::Response &response)
    {
        Received got{QByteArray::fromStdString(request.target), {}, QByteArray::fromStdString(request.body)};
        for (const auto &[name, value] : request.headers)
            got.headers[QByteArray::fromStdString(name).toLower()] = QByteArray::fromStdString(value);
        for (const auto &part : request.files)
            got.body += QByteArray::fromStdString(part.second.content);
        Response canned{404, "{}"};
        locked([&] {
            m_received << got;
            canned = m_routes.value(QByteArray::fromStdString(request.path), canned);
        });
        while (canned.silent && pause(1000)) {
        }
        if (canned.delayMs > 0 && !pause(canned.delayMs))
            return;
        response.status = canned.status;
        if (!canned.cacheControl.isEmpty())
            response.set_header("Cache-Control", canned.cacheControl.toStdString());
        if (canned.trickle)
            return response.set_content_provider(
                100000, "text/plain",
                [this](size_t, size_t, httplib::DataSink &sink) { return pause(100) && sink.write("a", 1); });
        response.set_content(canned.body.toStdString(), canned.contentType.toStdString());
    }

    httplib::Server m_server;
    std::thread m_thread;
    int m_port = 0;
    mutable std::mutex m_mutex;
    std::condition_variable m_closing;
    bool m_closed = false;
    QMap<QByteArray, Response> m_routes;
    QList<Received> m_received;
};
