// Put behind the page's own script by the test: every text is legible where it stands, in whatever colours the page
// has chosen.
const channels = (color) => color.match(/[\d.]+/g).map(Number);
const luminance = ([red, green, blue]) => {
  const linear = [red, green, blue].map((value) => value / 255)
    .map((value) => value <= 0.04045 ? value / 12.92 : ((value + 0.055) / 1.055) ** 2.4);
  return 0.2126 * linear[0] + 0.7152 * linear[1] + 0.0722 * linear[2];
};
const behind = (element) => {
  const color = channels(getComputedStyle(element).backgroundColor);
  return color.length === 4 && color[3] === 0 ? behind(element.parentElement) : color;
};
for (const element of document.querySelectorAll("body, body *")) {
  const hasText = [...element.childNodes].some((node) => node.nodeType === Node.TEXT_NODE && node.data.trim() !== "");
  if (!hasText || element.closest("script, svg"))
    continue;
  const bright = [channels(getComputedStyle(element).color), behind(element)].map(luminance).sort((a, b) => b - a);
  if ((bright[0] + 0.05) / (bright[1] + 0.05) < 4.5)
    document.body.dataset.error = `too little contrast: ${element.textContent.slice(0, 40)}`;
}
document.body.dataset.scheme = matchMedia("(prefers-color-scheme: dark)").matches ? "dark" : "light";
document.body.dataset.page = luminance(behind(document.body)) < 0.2 ? "dark" : "light";
