#include "calibrate/support/CommandFixture.h"

#include "calibrate/CommandLine.h"

#include <unistd.h>

namespace {

/// A descriptor from which a text can be read.
class Input {
public:
    explicit Input(const std::string& text) {
        if (pipe(ends_) != 0 ||
            write(ends_[1], text.data(), text.size()) != static_cast<ssize_t>(text.size()))
            throw std::runtime_error("no pipe for the input");
    }
    ~Input() {
        close(ends_[0]);
        close(ends_[1]);
    }
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    int descriptor() const { return ends_[0]; }

private:
    int ends_[2]{};
};

}  // namespace

int CommandFixture::run(const std::vector<std::string>& arguments) {
    std::vector<std::string> all{"--device", device_.address()};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return runBare(all);
}

int CommandFixture::runBare(const std::vector<std::string>& arguments) {
    out_.str("");
    err_.str("");
    const Input input(answer_.value_or(""));
    return calibrate::runCommandLine(
        arguments,
        {out_, err_, input.descriptor(), answer_.has_value(), false, 80, stop_.get_token()});
}

std::string CommandFixture::wav(const std::string& name, int sampleRate,
                                const Samples& channels) const {
    writeWav(path(name), sampleRate, channels);
    return path(name);
}
