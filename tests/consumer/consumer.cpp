#include <qmrimg/qmrimg.h>

#include <cstdio>

int main() {
  CVynImage image(-32, 3, 2, 1, 1.0, 0.0, 1);
  CImgInvert inverted;
  inverted.CopyImage(image);
  inverted.Do(&image, nullptr, 0);
  std::printf("%.0f\n", inverted.GetPixelGrayRaw(1, 1, 0));
}
