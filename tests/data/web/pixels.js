// The height of the first page as the browser shows it, and its pixels, 8 a byte, 1 for black, in base64.
const image = document.querySelector(".sheet img"), canvas = document.createElement("canvas");
const [width, height] = [canvas.width, canvas.height] = [image.naturalWidth, image.naturalHeight];
canvas.getContext("2d").drawImage(image, 0, 0);
const pixels = canvas.getContext("2d").getImageData(0, 0, width, height).data;
let bytes = "";
for (let at = 0; at < width * height; at += 8) {
  let byte = 0;
  for (let n = 0; n < 8; n++)
    byte = byte * 2 + (pixels[4 * (at + n)] === 0);
  bytes += String.fromCharCode(byte);
}
return [height, btoa(bytes)];
