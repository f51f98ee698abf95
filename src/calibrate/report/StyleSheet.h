#pragma once

namespace calibrate::report {

/// The page's look: one column on a phone, two on a desktop, light or dark as the reader's system
/// is, and for printing. Colours keep apart for colour-blind eyes (Okabe and Ito, 2008), and lines
/// by their dashes too.
extern const char* const kStyleSheet;

}  // namespace calibrate::report
