// A player's copy of the task and the scoring of the flown track against it. The player record owns
// one: CONNECT sets its turnpoints, `evaluate` scores it after every recorded track point.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "session/SngTrackPoint.h"
#include "session/SngTurnpoint.h"

// The leading, positional part of a turnpoint record: the start, each achieved turnpoint, or the
// recorded track position that stands for a large turnpoint.
struct SngAchievedPoint {
  int32_t id = -1;
  double lat = -999.0;  // degrees
  double lon = -999.0;
  double elev = 0.0;  // m
  std::string name;
  std::vector<BtkRef<SngWaypointAction>> actions;

  SngAchievedPoint() = default;
  explicit SngAchievedPoint(const SngTurnpoint& tp);
  SngAchievedPoint(double latDeg, double lonDeg);
};

// Plain record: no virtual operations.
class SngTaskProgress {
 public:
  std::vector<SngTurnpoint> turnpoints;
  double length = -1.0;        // m; below 0: not yet worked out
  double leg_length = 0.0;     // m
  double dist_to_tp = 0.0;     // m, latest position to turnpoint `curr_tp`
  double course_to_tp = 0.0;   // degrees
  double distance = 0.0;       // m, task distance flown
  double done_distance = 0.0;  // m, completed legs between achieved points
  int32_t curr_tp = 0;         // turnpoint to fly to next; 0 before the start
  int32_t pending_tp = -1;     // zone reached, achievement not yet booked; -1 none
  int32_t zone_entry_index = -1;
  int32_t track_index = 0;  // the next evaluation resumes here
  bool in_start_zone = false;
  bool finished = false;
  bool outlanded = false;
  double task_time = 0.0;                                 // s
  double start_time = 0.0;                                // s of the day
  double last_time = std::numeric_limits<double>::max();  // s; above any time until the first evaluation
  double avg_speed = 0.0;                                 // km/h; -1.0 when not computed
  bool regatta_start = false;
  std::vector<SngAchievedPoint> achieved;
  double finish_time = 0.0;  // s of the day; the end time of a finished task

  // Sum of the legs between consecutive turnpoints, once (while `length` is below 0).
  void computeLength();
  // Turnpoint names joined by " - ".
  std::string describe() const;
  // Status byte of the task broadcast: 1 on course or not started, 2 finished, 5 armed in the start
  // zone, 6 armed and finished; plus 8 when landed out.
  uint8_t statusCode() const;
  // Name of turnpoint `curr_tp`, empty when there is none.
  const std::string& currentTurnpointName() const;

  static bool inZone(const SngTurnpoint& tp, double lat, double lon, double alt);
  // Metres and degrees (true course, 0 to 360) from a position (degrees) to a turnpoint.
  static double distanceTo(const SngTurnpoint& tp, double lat, double lon);
  static double courseTo(const SngTurnpoint& tp, double lat, double lon);

  // Scores the track from where the previous call stopped. `now`: time of the latest aircraft state
  // (s, passed through a 32-bit float); `gate_open`: start gate opening time (whole s of the day).
  void evaluate(double now, const std::vector<SngTrackPoint>& track, int32_t gate_open);

 private:
  struct Position {
    double lat = 0.0, lon = 0.0, alt = 0.0;  // degrees, m
    double time = 0.0;                       // s
  };

  void resetProgress();
  bool resumable(const std::vector<SngTrackPoint>& track) const;
  // False when the walk ends here (the finish).
  bool scorePoint(size_t i, const std::vector<SngTrackPoint>& track, int32_t gate_open);
  void landOut(double t);
  void armStart(size_t i);
  // False when a line start was left towards the wrong side.
  bool bookPending(size_t i, const std::vector<SngTrackPoint>& track, int32_t gate_open);
  bool bookStart(size_t i, const std::vector<SngTrackPoint>& track, int32_t gate_open);
  void bookTurnpoint(int32_t p, size_t i, const std::vector<SngTrackPoint>& track);
  void finish(size_t i, const std::vector<SngTrackPoint>& track);
  void updateFigures(double now, const std::vector<SngTrackPoint>& track);

  SngAchievedPoint achievedPointFor(int32_t p, size_t endIndex,
                                    const std::vector<SngTrackPoint>& track) const;
  const SngAchievedPoint* achievedBefore(int32_t p) const;
  double exitTime(size_t i, const std::vector<SngTrackPoint>& track) const;
  double finishTimeAt(size_t i, const std::vector<SngTrackPoint>& track) const;
  static Position between(const SngTrackPoint& a, const SngTrackPoint& b, int k);
};
