// Camera metadata of an image.
#pragma once

#include "qmrimg/platform/object.h"
#include "qmrimg/platform/text.h"

// The value of a number that the file did not give.
inline constexpr double kUnknownHeaderValue = -9999.99;

class QMR_API CHeader : public CObject {
 public:
  CHeader() = default;
  CHeader(const CHeader&) = default;
  CHeader(CHeader&&) noexcept = default;
  CHeader& operator=(const CHeader&) = default;
  CHeader& operator=(CHeader&&) noexcept = default;
  ~CHeader() override;

  WORD GetISO() const { return ISO; }
  void SetISO(WORD iso) { ISO = iso; }
  int GetLightSource() const { return LightSource; }
  void SetLightSource(int source) { LightSource = source; }
  const CString& GetCameraMaker() const { return CameraMaker; }
  void SetCameraMaker(const CString& maker) { CameraMaker = maker; }
  const CString& GetCameraModel() const { return CameraModel; }
  void SetCameraModel(const CString& model) { CameraModel = model; }
  int GetCFAPattern() const { return CFAPattern; }
  void SetCFAPattern(int pattern) { CFAPattern = pattern; }

  // White-balance gains at the time of shooting: 4 of a Bayer sensor, 8 of a honeycomb sensor. An index outside
  // gives 0 or is ignored; the pointer forms copy all of them.
  double GetWBShootingGainBayer(int i) const { return i >= 0 && i < 4 ? WBShootingGainBayer[i] : 0.0; }
  void GetWBShootingGainBayer(double* gains) const;
  void SetWBShootingGainBayer(int i, double v);
  void SetWBShootingGainBayer(const double* gains);
  double GetWBShootingGainHoneyComb(int i) const { return i >= 0 && i < 8 ? WBShootingGainHoneyComb[i] : 0.0; }
  void GetWBShootingGainHoneyComb(double* gains) const;
  void SetWBShootingGainHoneyComb(int i, double v);
  void SetWBShootingGainHoneyComb(const double* gains);

  // Seconds; kUnknownHeaderValue when not known.
  void GetExposureTime(double* seconds) const { *seconds = ExposureTime; }
  void SetExposureTime(double seconds) { ExposureTime = seconds; }
  // Degrees Celsius; kUnknownHeaderValue when not known.
  void GetCoolingTemperature(double* degrees) const { *degrees = CoolingTemperature; }
  void SetCoolingTemperature(double degrees) { CoolingTemperature = degrees; }
  // Name of the detector of an astronomical camera.
  void GetDetector(CString& detector) const { detector = Detector; }
  void SetDetector(const CString& detector) { Detector = detector; }
  // The shutter speed as the camera wrote it, empty when the file had none.
  void GetExposureShutterSpeed(CString& speed) const { speed = ExposureShutterSpeed; }
  void SetExposureShutterSpeed(const CString& speed) { ExposureShutterSpeed = speed; }

 private:
  WORD ISO = 0;
  int LightSource = 0;
  CString CameraMaker;
  CString CameraModel;
  double WBShootingGainBayer[4] = {};
  double WBShootingGainHoneyComb[8] = {};
  int CFAPattern = 0;
  double ExposureTime = kUnknownHeaderValue;
  double CoolingTemperature = kUnknownHeaderValue;
  CString Detector;
  CString ExposureShutterSpeed;
};
