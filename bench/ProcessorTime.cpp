#include "ProcessorTime.h"

#include <cerrno>
#include <system_error>

ProcessorTime::ProcessorTime(pid_t process) {
    if (const int error = clock_getcpuclockid(process, &clock_); error != 0)
        throw std::system_error(error, std::generic_category(), "processor time");
    begin();
}

void ProcessorTime::begin() {
    totalAtBegin_ = total();
    begin_ = Clock::now();
}

double ProcessorTime::load() const {
    return std::chrono::duration<double>(total() - totalAtBegin_) /
           std::chrono::duration<double>(Clock::now() - begin_);
}

std::chrono::nanoseconds ProcessorTime::total() const {
    timespec time{};
    if (clock_gettime(clock_, &time) < 0)
        throw std::system_error(errno, std::generic_category(), "processor time");
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}
