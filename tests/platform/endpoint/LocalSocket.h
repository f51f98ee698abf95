#pragma once

/// A TCP socket on the loopback interface. Operations throw std::system_error.
class LocalSocket {
public:
    LocalSocket();
    ~LocalSocket();
    LocalSocket(LocalSocket&& other) noexcept;
    LocalSocket(const LocalSocket&) = delete;
    LocalSocket& operator=(const LocalSocket&) = delete;

    /// At any free port.
    void listen();
    LocalSocket accept();
    void connect(unsigned short port);

    unsigned short port() const;
    int descriptor() const { return descriptor_; }

private:
    explicit LocalSocket(int descriptor);

    int descriptor_;
};
