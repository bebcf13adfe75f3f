#include <cstdio>

extern "C" int visualCppHost();
// Visual C++'s mark of a program that uses floating point; its run-time library brings it.
extern "C" {
int _fltused = 0;
}

int main() {
  const int step = visualCppHost();
  std::printf(step == 0 ? "passed\n" : "step %d failed\n", step);
  return step;
}
