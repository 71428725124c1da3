// What the browser keeps for the page. A browser may forbid that; each page then begins anew.

export function kept(name) {
  try {
    return localStorage.getItem(`vorlatch-${name}`);
  } catch {
    return null;
  }
}

export function keep(name, value) {
  try {
    localStorage.setItem(`vorlatch-${name}`, value);
  } catch {
    // See above.
  }
}
