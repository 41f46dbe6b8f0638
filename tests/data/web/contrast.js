// The texts that are seen and whose contrast with what lies behind them is below 4.5 (WCAG 2.1, 1.4.3). What is disabled
// needs none.
const channels = (color) => color.match(/[\d.]+/g).map(Number);
const light = ([r, g, b]) => [r, g, b].map((c) => (c /= 255) <= 0.04045 ? c / 12.92 : ((c + 0.055) / 1.055) ** 2.4)
  .reduce((sum, c, n) => sum + c * [0.2126, 0.7152, 0.0722][n], 0);
const behind = (element) => {
  for (; element; element = element.parentElement) {
    const color = channels(getComputedStyle(element).backgroundColor);
    if (color.length < 4 || color[3] > 0)
      return color;
  }
  return [255, 255, 255];
};
const weak = [];
for (const element of (document.querySelector("dialog[open]") ?? document.body).querySelectorAll("*")) {
  const text = [...element.childNodes].some((node) => node.nodeType === 3 && node.data.trim()) || element.placeholder;
  if (!text || !element.checkVisibility() || element.closest(":disabled, noscript, select"))
    continue;
  const hint = element.placeholder && !element.value ? "::placeholder" : null;
  const [a, b] = [light(channels(getComputedStyle(element, hint).color)), light(behind(element))].sort((x, y) => y - x);
  if ((a + 0.05) / (b + 0.05) < 4.5)
    weak.push([element.outerHTML.slice(0, 90), (a + 0.05) / (b + 0.05)]);
}
return weak;
