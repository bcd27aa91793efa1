// The vector wrapper's test on its plain forms.
#include "frame/simd_test.cpp"
