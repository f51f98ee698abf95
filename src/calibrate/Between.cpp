#include "calibrate/Between.h"

#include "calibrate/Text.h"

namespace calibrate {

CLI::Validator between(double least, double most) {
    return CLI::Validator(
        [least, most](const std::string& text) -> std::string {
            double value = 0;
            const bool number = CLI::detail::lexical_cast(text, value);
            return number && value >= least && value <= most
                       ? ""
                       : "\"" + printable(text) + "\" is no number from " + fixed(least, 1) +
                             " to " + fixed(most, 1);
        },
        "");
}

}  // namespace calibrate
