#include "session/SngTaskProgress.h"

#include <algorithm>
#include <cassert>
#include <cmath>
#include <iostream>

#include "toolkit/BtkGeo.h"
#include "toolkit/BtkLogger.h"

namespace {

constexpr double kAverageSpeedMinDistance = 5000.0;  // m; shorter distances give no average speed
constexpr double kBestPointMinRadius = 501.0;        // m; larger zones book a track position
constexpr int kCrossingSteps = 20;                   // zone crossings are timed to 1/20 of a track step
constexpr double kLineHalfAngle = 90.0;              // degrees

BtkCourseDistance courseDistance(double lat1, double lon1, double lat2, double lon2) {
  return calcCourseDistance(btkRadians(lat1), btkRadians(lon1), btkRadians(lat2), btkRadians(lon2));
}

double metresBetween(double lat1, double lon1, double lat2, double lon2) {
  return courseDistance(lat1, lon1, lat2, lon2).distance;
}

// Course c (degrees) to the centre lies within the sector lo..hi.
bool inSector(double c, double axis, double half) {
  double lo = axis - half;
  if (lo < 0.0) lo += 360.0;
  double hi = axis + half;
  if (hi > 360.0) hi -= 360.0;
  // A sector through north (lo > hi) is the arc from lo round past 0 to hi. An equal pair stays the
  // open interval lo..hi, which holds nothing.
  if (lo > hi) return c > lo || c < hi;
  return lo < c && c < hi;
}

}  // namespace

SngAchievedPoint::SngAchievedPoint(const SngTurnpoint& tp)
    : id(tp.id), lat(tp.lat), lon(tp.lon), elev(tp.elev), name(tp.name), actions(tp.actions) {}

SngAchievedPoint::SngAchievedPoint(double latDeg, double lonDeg) : lat(latDeg), lon(lonDeg) {}

void SngTaskProgress::computeLength() {
  if (length >= 0.0) return;
  double sum = 0.0;
  for (size_t i = 1; i < turnpoints.size(); ++i) {
    const SngTurnpoint& a = turnpoints[i - 1];
    sum += metresBetween(a.lat, a.lon, turnpoints[i].lat, turnpoints[i].lon);
  }
  length = sum;
}

std::string SngTaskProgress::describe() const {
  std::string text;
  for (size_t i = 0; i < turnpoints.size(); ++i) {
    if (i > 0) text += " - ";
    text += turnpoints[i].name;
  }
  return text;
}

uint8_t SngTaskProgress::statusCode() const {
  const uint8_t base = in_start_zone ? (finished ? 6 : 5) : (finished ? 2 : 1);
  return outlanded ? base + 8 : base;
}

const std::string& SngTaskProgress::currentTurnpointName() const {
  static const std::string none;
  if (curr_tp < 0 || static_cast<size_t>(curr_tp) >= turnpoints.size()) return none;
  return turnpoints[curr_tp].name;
}

bool SngTaskProgress::inZone(const SngTurnpoint& tp, double lat, double lon, double alt) {
  if (alt > tp.max_alt) return false;
  const BtkCourseDistance cd = courseDistance(lat, lon, tp.lat, tp.lon);
  if (tp.oz == SNG_OZ_CYLINDER) return cd.distance < tp.radius;
  if (cd.distance > tp.radius) return false;
  const double half = tp.oz == SNG_OZ_LINE ? kLineHalfAngle : tp.angle2;
  return inSector(btkCourseDegrees(cd), tp.angle1, half);
}

double SngTaskProgress::distanceTo(const SngTurnpoint& tp, double lat, double lon) {
  return metresBetween(lat, lon, tp.lat, tp.lon);
}

double SngTaskProgress::courseTo(const SngTurnpoint& tp, double lat, double lon) {
  return btkCourseDegrees(courseDistance(lat, lon, tp.lat, tp.lon));
}

void SngTaskProgress::resetProgress() {
  in_start_zone = finished = outlanded = false;
  curr_tp = 0;
  pending_tp = zone_entry_index = -1;
  start_time = task_time = distance = done_distance = last_time = 0.0;
  track_index = 0;
  leg_length = dist_to_tp = course_to_tp = 0.0;
  avg_speed = -1.0;
  finish_time = 0.0;
  achieved.clear();
}

void SngTaskProgress::evaluate(double now, const std::vector<SngTrackPoint>& track, int32_t gate_open) {
  // One turnpoint is a start without a course: after it `curr_tp` 1 would name no turnpoint, so such
  // a task is not scored at all (its progress keeps its values and it reports as not started).
  if (turnpoints.size() < 2 || track.empty()) return;
  // A client clock that is not a number would poison `last_time` and stop every later reset.
  if (!std::isfinite(now)) return;
  if (last_time > now || !resumable(track)) resetProgress();

  // The walk resumes at the last evaluated point, so one new point costs the same at any track length.
  for (size_t i = static_cast<size_t>(track_index); i < track.size(); ++i) {
    const double t = track[i].time;
    if (!std::isfinite(t)) continue;
    if ((i > 0 && track[i].time < track[i - 1].time) || last_time > t) continue;
    if (t > now) {
      if (i == 0) return;
      break;
    }
    last_time = t;
    track_index = static_cast<int32_t>(i);
    if (!scorePoint(i, track, gate_open)) break;
  }
  updateFigures(now, track);
}

// The fields are public and a record may be copied whole; indices that do not fit this task or this
// track (a shorter track is not the one scored so far) are not trusted: the walk starts over.
bool SngTaskProgress::resumable(const std::vector<SngTrackPoint>& track) const {
  const auto count = static_cast<int64_t>(turnpoints.size());
  // pending_tp equals curr_tp (0) after a line start left towards the wrong side.
  return track_index >= 0 && static_cast<size_t>(track_index) < track.size() && curr_tp >= 0 &&
         curr_tp < count && pending_tp >= -1 && pending_tp <= curr_tp &&
         achieved.size() <= static_cast<size_t>(count) &&
         zone_entry_index < static_cast<int64_t>(track.size());
}

bool SngTaskProgress::scorePoint(size_t i, const std::vector<SngTrackPoint>& track, int32_t gate_open) {
  const SngTrackPoint& pt = track[i];
  if (pt.flags & SNG_TRACK_IGNORED) return true;
  if (pt.flags & (SNG_TRACK_ON_GROUND | SNG_TRACK_STATE_BIT2)) {
    if (curr_tp >= 1 && !in_start_zone) landOut(pt.time);
    return true;
  }
  if (curr_tp <= 1 && inZone(turnpoints[0], pt.lat, pt.lon, pt.alt)) {
    if (std::trunc(static_cast<double>(pt.time)) >= gate_open) armStart(i);
    return true;
  }
  const SngTurnpoint& target = turnpoints[curr_tp];
  if (inZone(target, pt.lat, pt.lon, pt.alt)) {
    // Zones that overlap: this point reached the next zone before the pending one was booked. Book
    // it first, so that `achieved` keeps one entry per turnpoint passed.
    if (pending_tp >= 0 && !bookPending(i, track, gate_open)) return true;
    if (static_cast<size_t>(curr_tp) + 1 == turnpoints.size()) {
      finish(i, track);
      return false;
    }
    if (pending_tp < curr_tp) {
      pending_tp = curr_tp;
      ++curr_tp;
      zone_entry_index = static_cast<int32_t>(i);
    }
    return true;
  }
  if (pending_tp >= 0) bookPending(i, track, gate_open);
  return true;
}

void SngTaskProgress::landOut(double t) {
  btkDebug() << "Outlanded: curr dist = " << distance << ", t = " << t << btkFlush;
  outlanded = true;
  task_time = t - start_time;
  // A zero task time would make the speed infinite; the distance test alone does not rule it out.
  if (distance > kAverageSpeedMinDistance && task_time > 0.0) avg_speed = distance / task_time * 3.6;
  in_start_zone = false;
  curr_tp = 0;
  pending_tp = -1;
}

void SngTaskProgress::armStart(size_t i) {
  outlanded = false;
  curr_tp = 1;
  pending_tp = 0;
  zone_entry_index = static_cast<int32_t>(i);
  in_start_zone = true;
  distance = done_distance = 0.0;
  avg_speed = -1.0;
  leg_length = 0.0;
  // A regatta start counts from the gate opening, so the time already flown stands.
  if (!regatta_start) task_time = 0.0;
}

bool SngTaskProgress::bookPending(size_t i, const std::vector<SngTrackPoint>& track, int32_t gate_open) {
  if (pending_tp == 0) return bookStart(i, track, gate_open);
  bookTurnpoint(pending_tp, i, track);
  return true;
}

bool SngTaskProgress::bookStart(size_t i, const std::vector<SngTrackPoint>& track, int32_t gate_open) {
  const SngTurnpoint& start = turnpoints[0];
  const SngTrackPoint& pt = track[i];
  if (start.oz == SNG_OZ_LINE) {
    double bearing = courseTo(start, pt.lat, pt.lon) + 180.0;  // from the line's centre to the glider
    if (bearing > 360.0) bearing -= 360.0;
    double diff = start.angle1 - bearing;
    if (diff < 0.0) diff += 360.0;
    if (diff > 90.0 && diff < 270.0) {
      curr_tp = 0;
      return false;
    }
  }
  const double t = regatta_start ? static_cast<double>(gate_open) : exitTime(i, track);
  start_time = t;
  in_start_zone = false;
  achieved.assign(1, SngAchievedPoint(start));
  std::cerr << "Started: t = " << start_time << " curr_tp = " << curr_tp << "\n";
  pending_tp = -1;
  return true;
}

void SngTaskProgress::bookTurnpoint(int32_t p, size_t i, const std::vector<SngTrackPoint>& track) {
  assert(p > 0 && achieved.size() == static_cast<size_t>(p));
  SngAchievedPoint point = achievedPointFor(p, i, track);
  if (const SngAchievedPoint* before = achievedBefore(p))
    done_distance += metresBetween(before->lat, before->lon, point.lat, point.lon);
  achieved.push_back(std::move(point));
  pending_tp = -1;
}

// The point that stands for turnpoint p when it is booked at track index endIndex.
SngAchievedPoint SngTaskProgress::achievedPointFor(int32_t p, size_t endIndex,
                                                   const std::vector<SngTrackPoint>& track) const {
  const SngTurnpoint& tp = turnpoints[p];
  const SngAchievedPoint* before = achievedBefore(p);
  if (tp.radius <= kBestPointMinRadius || static_cast<size_t>(p) + 1 >= turnpoints.size() || !before)
    return SngAchievedPoint(tp);
  const SngTurnpoint& next = turnpoints[p + 1];
  // Candidates run from the zone entry to the point before endIndex. The usual booking is the very
  // next evaluation of the entry point itself, which leaves that range empty: the entry point stands.
  const size_t first = std::min(static_cast<size_t>(std::max(zone_entry_index, 0)), track.size() - 1);
  size_t end = std::min(endIndex, track.size());  // exclusive
  if (end <= first) end = first + 1;
  size_t best = first;
  double bestMetres = -1.0;
  for (size_t j = first; j < end; ++j) {
    const double metres = metresBetween(before->lat, before->lon, track[j].lat, track[j].lon) +
                          metresBetween(track[j].lat, track[j].lon, next.lat, next.lon);
    if (metres > bestMetres) {
      bestMetres = metres;
      best = j;
    }
  }
  return SngAchievedPoint(track[best].lat, track[best].lon);
}

// Achieved point p - 1, or null when the list is shorter (it never is once the start is booked).
const SngAchievedPoint* SngTaskProgress::achievedBefore(int32_t p) const {
  if (p < 1 || static_cast<size_t>(p) > achieved.size()) return nullptr;
  return &achieved[p - 1];
}

SngTaskProgress::Position SngTaskProgress::between(const SngTrackPoint& a, const SngTrackPoint& b, int k) {
  const double f = static_cast<double>(k) / kCrossingSteps;
  // (1 - f) a + f b gives the end points exactly at k = 0 and k = 20.
  Position p;
  p.lat = (1.0 - f) * a.lat + f * b.lat;
  p.lon = (1.0 - f) * a.lon + f * b.lon;
  p.alt = (1.0 - f) * a.alt + f * b.alt;
  p.time = (1.0 - f) * a.time + f * b.time;
  return p;
}

double SngTaskProgress::exitTime(size_t i, const std::vector<SngTrackPoint>& track) const {
  const SngTrackPoint& b = track[i];
  const SngTrackPoint& a = i > 0 ? track[i - 1] : b;
  const SngTurnpoint& start = turnpoints[0];
  double t = b.time;  // kept when rounding leaves every interpolated position inside
  double lastInside = a.time;
  for (int k = 0; k <= kCrossingSteps; ++k) {
    const Position p = between(a, b, k);
    if (!inZone(start, p.lat, p.lon, p.alt)) {
      std::cerr << "exit index = " << k << "\n";
      t = lastInside;
      break;
    }
    lastInside = p.time;
  }
  std::cerr << "Found exit time: " << t << "\n";
  return t;
}

double SngTaskProgress::finishTimeAt(size_t i, const std::vector<SngTrackPoint>& track) const {
  const SngTrackPoint& b = track[i];
  const SngTrackPoint& a = i > 0 ? track[i - 1] : b;
  const SngTurnpoint& goal = turnpoints.back();
  double lastOutside = a.time;
  for (int k = 0; k <= kCrossingSteps; ++k) {
    const Position p = between(a, b, k);
    if (inZone(goal, p.lat, p.lon, p.alt)) return lastOutside;
    lastOutside = p.time;
  }
  return b.time;
}

void SngTaskProgress::finish(size_t i, const std::vector<SngTrackPoint>& track) {
  finish_time = finishTimeAt(i, track);
  finished = true;
}

void SngTaskProgress::updateFigures(double now, const std::vector<SngTrackPoint>& track) {
  const SngTrackPoint& pt = track[static_cast<size_t>(track_index)];
  const SngTurnpoint& target = turnpoints[curr_tp];
  const BtkCourseDistance toTarget = courseDistance(pt.lat, pt.lon, target.lat, target.lon);
  dist_to_tp = toTarget.distance;
  course_to_tp = btkCourseDegrees(toTarget);
  if (curr_tp < 1 || in_start_zone) return;

  // Inside the zone of turnpoint curr_tp - 1 it is not booked yet (that happens at the next point):
  // count it as booked where the booking would put it, so the distance does not drop for a moment.
  double booked = done_distance;
  SngAchievedPoint provisional;
  const SngAchievedPoint* from = nullptr;
  if (static_cast<size_t>(curr_tp) <= achieved.size()) {
    from = &achieved[curr_tp - 1];
  } else if (pending_tp == curr_tp - 1 && pending_tp > 0) {
    provisional = achievedPointFor(pending_tp, static_cast<size_t>(track_index), track);
    if (const SngAchievedPoint* before = achievedBefore(pending_tp))
      booked += metresBetween(before->lat, before->lon, provisional.lat, provisional.lon);
    from = &provisional;
  }
  if (!from) return;  // not reachable: every path to curr_tp >= 1 books the start first

  const double leg = metresBetween(target.lat, target.lon, from->lat, from->lon);
  double endTime = now;
  if (finished) {
    distance = leg + booked;
    endTime = finish_time;
  } else {
    leg_length = leg;
    distance = std::max(0.0, leg + booked - dist_to_tp);
  }
  task_time = endTime - start_time;
  if (distance > kAverageSpeedMinDistance && task_time > 0.0) avg_speed = distance / task_time * 3.6;
}
