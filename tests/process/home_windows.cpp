#include "tests/process/home.h"

namespace quorel {

OwnHome::OwnHome() = default;
OwnHome::~OwnHome() = default;

} // namespace quorel
