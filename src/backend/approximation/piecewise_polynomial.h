#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "backend/approximation/segmentation.h"

namespace approximation {

// A polynomial for each segment of an argument first + X: p(X) = the sum of rows[row][j] * 2^lsb[j]
// * (t * 2^argument.lsb)^j with t = X - the segment's centre, and a proven bound of its error.
struct PiecewisePolynomial {
  ArgumentFormat argument;
  Segmentation segmentation;
  std::vector<int> lsb;                      // of each coefficient's grid
  std::vector<std::vector<util::MPZ>> rows;  // by row, then by power
  Bounds error;                              // p - f over all segments, in units of
  int errorFraction = 0;                     // 2^-errorFraction
  std::vector<Bounds> coefficient;           // over all rows, in units of 2^lsb[j]
  // The values of c[j] + c[j + 1] t + c[j + 2] t^2 + ... over all segments, in units of 2^lsb[j].
  std::vector<Bounds> partial;

  int degree() const { return static_cast<int>(lsb.size()) - 1; }
  // The greater magnitude of the error, in units of 2^unit; not below it.
  double errorIn(int unit) const;
};

// The models of f over segments of its argument, within 2^logTolerance, each made once.
class LocalModels {
 public:
  LocalModels(const Function& f, const ArgumentFormat& argument, int logTolerance)
      : f(f), argument(argument), logTolerance(logTolerance) {}
  // Nothing where f has none.
  const std::optional<LocalModel>& of(const Segmentation::Segment& segment);

 private:
  const Function& f;
  const ArgumentFormat& argument;
  const int logTolerance;
  int lastDegree = 0;
  std::map<std::pair<int, util::MPZ>, std::optional<LocalModel>> models;  // by size and start
};

// What a circuit for a polynomial costs depends on this. Before coefficients are known the widths
// are estimates.
struct PolynomialShape {
  int degree = 0;
  ArgumentFormat argument;
  const Segmentation* segmentation = nullptr;
  std::vector<int> lsb;
  std::vector<Bounds> coefficient, partial;  // in units of 2^lsb[j]
  double left = 0;  // of the room, for the evaluation, in units of the target
};
PolynomialShape shapeOf(const PiecewisePolynomial& p, double left);

// What is asked of a polynomial: that its error and its evaluation's stay below room * 2^lsb.
struct PolynomialTarget {
  ArgumentFormat argument;
  int lsb = 0;
  double room = 0;
  int mostDegree = 6;
  int mostRowBits = 12;
  bool hierarchical = true;
};

// The price of a circuit of this shape; infinite where none fits into the room that is left.
using PolynomialCost = std::function<double(const PolynomialShape&)>;

// The tolerance of models for polynomials whose error is at most room * 2^unit.
int logToleranceFor(int unit, double room);

// The polynomials of `segmentation` with these grids whose error is at most room * 2^unit; nothing
// where a segment's is greater. The models are those of f in that tolerance.
std::optional<PiecewisePolynomial> fitPiecewise(const Function& f, const ArgumentFormat& argument,
                                                const Segmentation& segmentation,
                                                const std::vector<int>& lsb, int unit, double room,
                                                LocalModels& models);

// The cheapest piecewise polynomial for f.
//
// Degrees, numbers of segments, uniform or split further where f is hard, and two ways to share
// the room between coefficients and evaluation are priced by estimates: minimax errors of a sample
// of segments. The cheapest few are then fitted and certified, until none of the others promises
// to cost less. Fails where no segmentation with mostRowBits suffices.
util::Result<PiecewisePolynomial> searchPolynomial(const Function& f,
                                                   const PolynomialTarget& target,
                                                   const PolynomialCost& cost);

}  // namespace approximation
