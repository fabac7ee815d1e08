#include "core/buffer.h"

int main() {}
