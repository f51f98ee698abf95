#include "sdk/records/VeskPlayerRecords.h"

const char* VeskPlayLogicState::toString(Enum state) {
    switch (state) {
        case Stopped:
            return "Stopped";
        case Transitioning:
            return "Transitioning";
        case Playing:
            return "Playing";
        case Paused:
            return "Paused";
    }
    return "Unknown";
}
