// Character-set conversion between UTF-8 and LMBCS (optimised for group 1), the
// runtime's internal character set, for the other services of the simulated runtime.
#ifndef HYSIM_TRANSLATE_H
#define HYSIM_TRANSLATE_H

#include <string>

namespace sim {

// Each returns false when the input is not valid in its character set.
bool utf8ToLmbcs(const std::string& utf8, std::string& lmbcs);
bool lmbcsToUtf8(const std::string& lmbcs, std::string& utf8);

} // namespace sim

#endif
