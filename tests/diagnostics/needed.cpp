extern "C" void needed() {}
