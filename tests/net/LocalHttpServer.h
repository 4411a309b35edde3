#pragma once

// An HTTP(S) server on 127.0.0.1 for the network tests, on a port of its own, with the
// endpoints the tests need. It runs on its own thread until the object goes.

#include <httplib.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

class LocalHttpServer
{
public:
    /// Plain HTTP, or HTTPS with the given certificate and key files.
    explicit LocalHttpServer(const std::string& certFile = {}, const std::string& keyFile = {})
    {
        if (certFile.empty())
            server_ = std::make_unique<httplib::Server>();
        else
            server_ = std::make_unique<httplib::SSLServer>(certFile.c_str(), keyFile.c_str());
        auto& s = *server_;
        s.new_task_queue = [] { return new httplib::ThreadPool(8); };
        // Every reply closes its connection, so that stopping the server never waits for an idle
        // keep-alive connection to time out.
        s.set_post_routing_handler(
            [](const httplib::Request&, httplib::Response& res) { res.set_header("Connection", "close"); });

        s.Get("/hello", [](const httplib::Request&, httplib::Response& res) {
            res.set_content(R"({"status_code":200,"data":{"hello":"world"}})", "application/json");
        });
        s.Get("/redirect", [](const httplib::Request&, httplib::Response& res) {
            res.status = 302;
            res.set_header("Location", "/hello");
        });
        // Describes what arrived: the method, the headers that matter and the body's size.
        s.Post("/echo", [](const httplib::Request& req, httplib::Response& res) {
            std::string text = "length=" + std::to_string(req.body.size());
            text += " content-length=" + req.get_header_value("Content-Length");
            text += " content-type=" + req.get_header_value("Content-Type");
            text += " expect=" + req.get_header_value("Expect");
            text += " transfer-encoding=" + req.get_header_value("Transfer-Encoding");
            text += " body=" + req.body.substr(0, 64);
            res.set_content(text, "text/plain");
        });
        s.Get("/echo", [](const httplib::Request& req, httplib::Response& res) {
            res.set_content("content-type=" + req.get_header_value("Content-Type") + " has-content-type=" +
                                (req.has_header("Content-Type") ? "yes" : "no"),
                            "text/plain");
        });
        // Counts a body as it streams in, without keeping it.
        s.Post("/sink", [this](const httplib::Request&, httplib::Response& res,
                               const httplib::ContentReader& reader) {
            uint64_t total = 0;
            reader([&](const char*, size_t length) {
                total += length;
                received_.store(total);
                return true;
            });
            res.set_content("received=" + std::to_string(total), "text/plain");
        });
        // Accepts the request and never answers, until the server stops.
        s.Get("/silent", [this](const httplib::Request&, httplib::Response& res) {
            std::unique_lock lock(mutex_);
            wake_.wait(lock, [this] { return stopping_; });
            res.status = 503;
        });
        // Reads the body, then answers three seconds later.
        s.Post("/late", [this](const httplib::Request&, httplib::Response& res) {
            std::unique_lock lock(mutex_);
            wake_.wait_for(lock, std::chrono::seconds(3), [this] { return stopping_; });
            res.set_content("late", "text/plain");
        });
        port_ = s.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_->listen_after_bind(); });
        while (!server_->is_running())
            std::this_thread::yield();
    }

    ~LocalHttpServer()
    {
        {
            std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        wake_.notify_all();
        server_->stop();
        thread_.join();
    }

    int port() const { return port_; }
    std::string url(const std::string& path, const char* scheme = "http") const
    {
        return std::string(scheme) + "://127.0.0.1:" + std::to_string(port_) + path;
    }
    uint64_t bytesReceived() const { return received_.load(); }

private:
    std::unique_ptr<httplib::Server> server_;
    std::thread thread_;
    int port_ = 0;
    std::atomic<uint64_t> received_{0};
    std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;
};
