// Positions in sorted arrays of which only the first `count` values are used.

// The first value that is not less than the wanted one.
export function lowerBound(values, count, wanted) {
  let low = 0;
  let high = count;
  while (low < high) {
    const middle = (low + high) >>> 1;
    if (values[middle] < wanted) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return low;
}

// The first value that is greater than the wanted one.
export function upperBound(values, count, wanted) {
  let low = 0;
  let high = count;
  while (low < high) {
    const middle = (low + high) >>> 1;
    if (values[middle] <= wanted) {
      low = middle + 1;
    } else {
      high = middle;
    }
  }
  return low;
}
