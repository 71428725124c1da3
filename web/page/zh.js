export const chinese = {};
